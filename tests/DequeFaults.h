// Makes the creation of threads fail on demand.
#ifndef TARN_TESTS_DEQUEFAULTS_H
#define TARN_TESTS_DEQUEFAULTS_H

#include <atomic>

namespace tarn_test {

extern std::atomic<bool> creatingFails;  ///< no thread can be created

}  // namespace tarn_test

#endif  // TARN_TESTS_DEQUEFAULTS_H
