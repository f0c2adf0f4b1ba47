// The layout of all that hosts construct, keep or hand over by pointer, and the values of all
// enumerators, as hosts have compiled them in. The numbers are those of x86-64 with its usual
// alignment, worked out from the order and the widths of the fields; a host compiled years ago
// relies on each of them. Compiles as C++11 and later.
#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <iosfwd>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// Private fields have their places too. Everything that the public headers include stands above.
#ifdef __clang__
#pragma clang diagnostic ignored "-Wkeyword-macro"
#endif
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#define private public
#include <Tarn/Generic/Generic.h>
#undef private

using namespace Tarn;
using namespace Tarn::Generic;

#define SIZE(Class, size, alignment) \
  static_assert(sizeof(Class) == size && alignof(Class) == alignment, "the size of " #Class)

#define FIELD(Class, field, offset, ...)                                  \
  static_assert(std::is_same<decltype(Class::field), __VA_ARGS__>::value, \
                "the type of " #Class "::" #field);                       \
  static_assert(offsetof(Class, field) == offset, "the place of " #Class "::" #field)

#define ENUMERATOR(Enum, name, number)                                            \
  static_assert(std::is_same<decltype(name), Enum>::value && int(name) == number, \
                "the value of " #name)

#define ENUMERATION(Enum) \
  static_assert(std::is_same<std::underlying_type<Enum>::type, int>::value, "the width of " #Enum)

// How a class is passed by value depends on its being trivial.
#define PASSED_IN_REGISTERS(Class)                                                                 \
  static_assert(std::is_trivially_copyable<Class>::value && std::is_standard_layout<Class>::value, \
                #Class " is copied byte by byte")
#define PASSED_IN_MEMORY(Class) \
  static_assert(!std::is_trivially_destructible<Class>::value, #Class " has a destructor")

#define PLAIN(Class) \
  static_assert(!std::is_polymorphic<Class>::value, #Class " has no virtual operation")

// The platform's own types, on which the numbers below build.
SIZE(pthread_mutex_t, 40, 8);
SIZE(pthread_cond_t, 48, 8);
SIZE(pthread_t, 8, 8);
SIZE(std::atomic<int>, 4, 4);
SIZE(std::atomic<unsigned int>, 4, 4);
SIZE(std::atomic<pthread_t>, 8, 8);

// ---- Enumerations

ENUMERATION(LogLevel);
ENUMERATOR(LogLevel, TRACEALL3, -3);
ENUMERATOR(LogLevel, TRACEALL2, -2);
ENUMERATOR(LogLevel, TRACEALL1, -1);
ENUMERATOR(LogLevel, TRACE, 0);
ENUMERATOR(LogLevel, DEBUG, 1);
ENUMERATOR(LogLevel, INFO, 2);
ENUMERATOR(LogLevel, WARN, 3);
ENUMERATOR(LogLevel, ERROR, 4);
ENUMERATOR(LogLevel, FATAL, 5);

ENUMERATION(CharSet);
ENUMERATOR(CharSet, CHARSET_GBK, 0);
ENUMERATOR(CharSet, CHARSET_UTF8, 1);

ENUMERATION(JsonType);
ENUMERATOR(JsonType, JSON_TYPE_OBJECT, 0);
ENUMERATOR(JsonType, JSON_TYPE_ARRAY, 1);

ENUMERATION(::LogType);
ENUMERATOR(::LogType, ::LOG_TYPE_0, 0);
ENUMERATOR(::LogType, ::LOG_TYPE_1, 1);
ENUMERATOR(::LogType, ::LOG_TYPE_2, 2);

ENUMERATION(protocol_type);
ENUMERATOR(protocol_type, PROTOCOL_STRING, 0);
ENUMERATOR(protocol_type, PROTOCOL_BYTE, 1);
ENUMERATOR(protocol_type, PROTOCOL_NONE, 2);
ENUMERATOR(protocol_type, PROTOCOL_STRING_RECV, 3);
ENUMERATOR(protocol_type, PROTOCOL_STRING_SEND, 4);
ENUMERATOR(protocol_type, PROTOCOL_HTTP, 5);

// 2 was an event once and stays free.
ENUMERATION(ConnType);
ENUMERATOR(ConnType, CONN_SUCCESS, 0);
ENUMERATOR(ConnType, CONN_FAILED, 1);
ENUMERATOR(ConnType, CONN_CLOSED, 3);
ENUMERATOR(ConnType, CONN_ERROR, 4);

// ---- Core runtime

PLAIN(CStringEx);
PASSED_IN_MEMORY(CStringEx);
SIZE(CStringEx, 72, 8);
FIELD(CStringEx, m_pData, 0, char*);
FIELD(CStringEx, m_szBuffer, 8, char[64]);

PASSED_IN_REGISTERS(Tarn::_SYSTEMTIME);
SIZE(Tarn::_SYSTEMTIME, 16, 2);
FIELD(Tarn::_SYSTEMTIME, year, 0, unsigned short);
FIELD(Tarn::_SYSTEMTIME, month, 2, unsigned short);
FIELD(Tarn::_SYSTEMTIME, dayOfWeek, 4, unsigned short);
FIELD(Tarn::_SYSTEMTIME, day, 6, unsigned short);
FIELD(Tarn::_SYSTEMTIME, hour, 8, unsigned short);
FIELD(Tarn::_SYSTEMTIME, minute, 10, unsigned short);
FIELD(Tarn::_SYSTEMTIME, second, 12, unsigned short);
FIELD(Tarn::_SYSTEMTIME, milliseconds, 14, unsigned short);

PLAIN(CDateTime);
PASSED_IN_MEMORY(CDateTime);
SIZE(CDateTime, 80, 8);
FIELD(CDateTime, m_time, 0, Tarn::_SYSTEMTIME);
FIELD(CDateTime, m_szText, 16, char[50]);
FIELD(CDateTime, m_seconds, 72, long long);

PLAIN(CLock);
SIZE(CLock, 40, 8);
FIELD(CLock, m_mutex, 0, pthread_mutex_t);

// The lock's reference comes first; a reference has no offset of its own.
PLAIN(CAutoLocker);
SIZE(CAutoLocker, 1056, 8);
static_assert(std::is_same<decltype(CAutoLocker::m_lock), CLock&>::value,
              "the lock is a reference");
FIELD(CAutoLocker, m_szName, 8, char[1024]);
FIELD(CAutoLocker, m_dStartTime, 1032, double);
FIELD(CAutoLocker, m_pLog, 1040, IAsyncLog*);
FIELD(CAutoLocker, m_level, 1048, LogLevel);

PLAIN(CLockEx);
SIZE(CLockEx, 40, 8);
FIELD(CLockEx, m_mutex, 0, pthread_mutex_t);

PLAIN(SyncEvent);
SIZE(SyncEvent, 96, 8);
FIELD(SyncEvent, m_bSignaled, 0, bool);
FIELD(SyncEvent, m_bManualReset, 1, bool);
FIELD(SyncEvent, m_mutex, 8, pthread_mutex_t);
FIELD(SyncEvent, m_cond, 48, pthread_cond_t);

static_assert(std::has_virtual_destructor<CThread>::value, "threads are deleted through a base");
SIZE(CThread, 104, 8);
FIELD(CThread, m_bRunning, 8, std::atomic<int>);
FIELD(CThread, m_thread, 16, std::atomic<pthread_t>);
FIELD(CThread, m_szName, 24, char[16]);
FIELD(CThread, m_lock, 40, CLock);
FIELD(CThread, m_interval, 80, int);
FIELD(CThread, m_threadId, 84, std::atomic<unsigned int>);
FIELD(CThread, m_pCallback, 88, void (*)(void*));
FIELD(CThread, m_pArg, 96, void*);

static_assert(std::is_empty<CApplication>::value, "CApplication has no fields");
SIZE(CApplication, 1, 1);

// Virtual operations, but no virtual destructor.
static_assert(std::is_polymorphic<CDirectory>::value &&
                  !std::has_virtual_destructor<CDirectory>::value,
              "the destructor of CDirectory takes no slot");
SIZE(CDirectory, 264, 8);
FIELD(CDirectory, m_szPath, 8, char[256]);

// ---- Text and data

PLAIN(CEncoding);
SIZE(CEncoding, 16, 8);
FIELD(CEncoding, m_pBuffer, 0, char*);
FIELD(CEncoding, m_pBuffer2, 8, char*);

static_assert(std::is_polymorphic<CSetting>::value && !std::has_virtual_destructor<CSetting>::value,
              "the destructor of CSetting takes no slot");
SIZE(CSetting, 264, 8);
FIELD(CSetting, m_szPath, 8, char[256]);

// ---- Logging

PASSED_IN_REGISTERS(::_LogerInfo);
SIZE(::_LogerInfo, 1048, 8);
FIELD(::_LogerInfo, path, 0, char[1024]);
FIELD(::_LogerInfo, buffer, 1024, char*);
FIELD(::_LogerInfo, maxLen, 1032, int);
FIELD(::_LogerInfo, file, 1040, FILE*);

// ---- Network transport and file transfer

PASSED_IN_REGISTERS(st_clientinfo);
SIZE(st_clientinfo, 40, 8);
FIELD(st_clientinfo, ip, 0, char[20]);
FIELD(st_clientinfo, port, 20, int);
FIELD(st_clientinfo, sockfd, 24, int);
FIELD(st_clientinfo, datalen, 28, int);
FIELD(st_clientinfo, buffer, 32, char*);

PASSED_IN_REGISTERS(_UpRequest);
SIZE(_UpRequest, 608, 8);
FIELD(_UpRequest, name, 0, char[256]);
FIELD(_UpRequest, path, 256, char[256]);
FIELD(_UpRequest, cid, 512, unsigned int);
FIELD(_UpRequest, header, 520, char*);
FIELD(_UpRequest, received, 528, unsigned int);
FIELD(_UpRequest, expected, 532, unsigned int);
FIELD(_UpRequest, file, 536, FILE*);
FIELD(_UpRequest, md5, 544, char[40]);
FIELD(_UpRequest, ext, 584, char[24]);

PASSED_IN_REGISTERS(_DownRequest);
SIZE(_DownRequest, 260, 4);
FIELD(_DownRequest, file, 0, char[256]);
FIELD(_DownRequest, cid, 256, unsigned int);

// ---- Hashes, checksums, AES

PLAIN(CMd5);
SIZE(CMd5, 33, 1);
FIELD(CMd5, m_szResult, 0, char[33]);

PLAIN(CHmacSHA256);
SIZE(CHmacSHA256, 65, 1);
FIELD(CHmacSHA256, m_szResult, 0, char[65]);

static_assert(std::is_empty<CRC>::value, "CRC has no fields");
SIZE(CRC, 1, 1);

PASSED_IN_REGISTERS(::MD5);
SIZE(::MD5, 108, 4);
FIELD(::MD5, finalized, 0, bool);
FIELD(::MD5, buffer, 1, unsigned char[64]);
FIELD(::MD5, count, 68, unsigned int[2]);
FIELD(::MD5, state, 76, unsigned int[4]);
FIELD(::MD5, digest, 92, unsigned char[16]);

PASSED_IN_REGISTERS(::MD5_CTX);
SIZE(::MD5_CTX, 104, 4);
FIELD(::MD5_CTX, state, 0, unsigned int[4]);
FIELD(::MD5_CTX, count, 16, unsigned int[2]);
FIELD(::MD5_CTX, buffer, 24, unsigned char[64]);
FIELD(::MD5_CTX, digest, 88, unsigned char[16]);

PASSED_IN_REGISTERS(::sha256_t);
SIZE(::sha256_t, 104, 8);
FIELD(::sha256_t, state, 0, unsigned int[8]);
FIELD(::sha256_t, count, 32, size_t);
FIELD(::sha256_t, buffer, 40, unsigned char[64]);

PLAIN(CAes);
SIZE(CAes, 1128, 4);
FIELD(CAes, m_szOutput, 0, char[1024]);
FIELD(CAes, m_szChain, 1024, char[100]);
FIELD(CAes, m_mode, 1124, int);

static_assert(std::has_virtual_destructor<::AES>::value, "ciphers are deleted through a base");
SIZE(::AES, 1048, 8);
FIELD(::AES, m_bInit, 8, bool);
FIELD(::AES, m_keyLength, 12, int);
FIELD(::AES, m_blockSize, 16, int);
FIELD(::AES, m_rounds, 20, int);
FIELD(::AES, m_Ke, 24, int[15][8]);
FIELD(::AES, m_Kd, 504, int[15][8]);
FIELD(::AES, m_chain0, 984, char[32]);
FIELD(::AES, m_chain, 1016, char[32]);

// ---- Geodesy and geometry

PASSED_IN_REGISTERS(Tarn::tagPOINT);
SIZE(Tarn::tagPOINT, 8, 4);
FIELD(Tarn::tagPOINT, x, 0, int);
FIELD(Tarn::tagPOINT, y, 4, int);

PASSED_IN_REGISTERS(Tarn::tagRECT);
SIZE(Tarn::tagRECT, 16, 4);
FIELD(Tarn::tagRECT, left, 0, int);
FIELD(Tarn::tagRECT, top, 4, int);
FIELD(Tarn::tagRECT, right, 8, int);
FIELD(Tarn::tagRECT, bottom, 12, int);

PASSED_IN_REGISTERS(_POINTD);
SIZE(_POINTD, 16, 8);
FIELD(_POINTD, x, 0, double);
FIELD(_POINTD, y, 8, double);

PASSED_IN_REGISTERS(sector_info);
SIZE(sector_info, 40, 8);
FIELD(sector_info, lon, 0, double);
FIELD(sector_info, lat, 8, double);
FIELD(sector_info, radius, 16, double);
FIELD(sector_info, angle, 24, double);
FIELD(sector_info, azimuth, 32, double);

PASSED_IN_REGISTERS(window_info);
SIZE(window_info, 16, 8);
FIELD(window_info, width, 0, int);
FIELD(window_info, height, 4, int);
FIELD(window_info, ratio, 8, double);

PASSED_IN_REGISTERS(angle_info);
SIZE(angle_info, 24, 8);
FIELD(angle_info, pan, 0, double);
FIELD(angle_info, tilt, 8, double);
FIELD(angle_info, fov, 16, double);

PASSED_IN_REGISTERS(point_info);
SIZE(point_info, 8, 4);
FIELD(point_info, x, 0, int);
FIELD(point_info, y, 4, int);

PASSED_IN_REGISTERS(MeasuredValue);
SIZE(MeasuredValue, 48, 8);
FIELD(MeasuredValue, time, 0, double);
FIELD(MeasuredValue, lat, 8, double);
FIELD(MeasuredValue, lon, 16, double);
FIELD(MeasuredValue, speed, 24, double);
FIELD(MeasuredValue, aux, 32, double);
FIELD(MeasuredValue, course, 40, double);

PLAIN(CConvertLonLat);
SIZE(CConvertLonLat, 1336, 8);
FIELD(CConvertLonLat, m_x, 0, double[5]);
FIELD(CConvertLonLat, m_K, 40, double[5][5]);
FIELD(CConvertLonLat, m_F, 240, double[5][5]);
FIELD(CConvertLonLat, m_H, 440, double[5][5]);
FIELD(CConvertLonLat, m_Q, 640, double[5][5]);
FIELD(CConvertLonLat, m_R, 840, double[5][5]);
FIELD(CConvertLonLat, m_P, 1040, double[5][5]);
FIELD(CConvertLonLat, m_lastValue, 1240, MeasuredValue);
FIELD(CConvertLonLat, m_curValue, 1288, MeasuredValue);

// ---- Interfaces hold their virtual table's address and nothing else.

#define INTERFACE(Class)                                                            \
  static_assert(sizeof(Class) == sizeof(void*) && std::is_abstract<Class>::value && \
                    std::has_virtual_destructor<Class>::value,                      \
                #Class " is an interface")

INTERFACE(IDeque);
INTERFACE(IJson);
INTERFACE(ILog);
INTERFACE(IAsyncLog);
INTERFACE(IPing);
INTERFACE(ITcpClient);
INTERFACE(ITcpServer);
INTERFACE(IUdpClient);
INTERFACE(IUdpServer);
INTERFACE(IFtp);
INTERFACE(IUploadClient);
INTERFACE(IUploadServer);
INTERFACE(IDownloadClient);
INTERFACE(IDownloadServer);

// ---- Exported data

static_assert(std::is_same<decltype(::g_nOutTerminal), int>::value, "the echo's mask");
static_assert(std::is_same<decltype(::g_nOutLevel), int>::value, "the echo's level");
static_assert(std::is_same<decltype(::Table_CRC8), unsigned char[256]>::value, "the CRC's table");
static_assert(std::is_same<decltype(::sm_chain0), char[32]>::value, "the default chain");
static_assert(std::is_same<decltype(::sm_szErrorMsg1), char[23]>::value, "the first message");
static_assert(std::is_same<decltype(::sm_szErrorMsg2), char[32]>::value, "the second message");
