// Makes platform calls of the UDP objects fail on demand, and counts them.
#ifndef TARN_TESTS_UDPFAULTS_H
#define TARN_TESTS_UDPFAULTS_H

#include <atomic>
#include <functional>

namespace tarn_test {

/// A call that fails with `error` for as long as `failures` is above 0, which each failure lowers.
struct FaultyCall {
  std::atomic<int> failures{0};
  std::atomic<int> error{0};
  std::atomic<int> calls{0};  ///< successful ones, too

  void Fail(int withError, int times) {
    error = withError;
    failures = times;
  }
  bool Fails();
};

/// What fails while one of these lives; only one may.
class UdpFaults {
 public:
  UdpFaults();
  ~UdpFaults();
  UdpFaults(const UdpFaults&) = delete;
  UdpFaults& operator=(const UdpFaults&) = delete;

  FaultyCall socket;
  FaultyCall sendto;
  FaultyCall sendmsg;
  FaultyCall recvfrom;
  FaultyCall fcntl;
  FaultyCall setsockopt;  ///< only for the option below
  std::atomic<int> setsockoptName{0};
  FaultyCall segmentation;  ///< asking whether the kernel cuts datagrams
  FaultyCall create;        ///< of threads
  std::atomic<bool> neverWritable{false};
  std::function<void()> beforeBind;  ///< set it before a thread can call bind
};

}  // namespace tarn_test

#endif  // TARN_TESTS_UDPFAULTS_H
