// Makes platform calls fail on purpose. The program that links FaultInjector.cpp has its own
// version of each call below, which counts and then fails or hands on.
#ifndef TARN_TESTS_FAULTS_FAULTINJECTOR_H
#define TARN_TESTS_FAULTS_FAULTINJECTOR_H

#include <array>

namespace tarn_test {

enum class Call {
  kSocket,
  kSetsockopt,
  kBind,
  kListen,
  kAccept4,
  kConnect,
  kGetpeername,
  kSend,
  kRecv,
  kPoll,
  kFcntl,
  kEpollCreate,
  kEpollCtl,
  kPthreadCreate,
  kOpen,
  kWritev,
  kFdopen,
  kNew,
  kCount
};

const char* NameOf(Call call);

/// From now on the `nth` such call of the process fails (counted from 1), and with `onwards` every
/// later one, too.
void FailCall(Call call, int nth, bool onwards);
/// Lets all calls through again; true when at least one has failed.
bool StopFailing();

}  // namespace tarn_test

#endif  // TARN_TESTS_FAULTS_FAULTINJECTOR_H
