// The order of the fields in the classes behind the factories. Hosts do not construct them, but
// find their fields in core files and with debuggers by that order; what we need beside them stands
// behind them.
#include <Tarn/Generic/Generic.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "utility/AsyncLog.h"
#include "utility/DownloadClient.h"
#include "utility/DownloadServer.h"
#include "utility/Ftp.h"
#include "utility/Log.h"
#include "utility/Ping.h"
#include "utility/TcpClient.h"
#include "utility/TcpServer.h"
#include "utility/UdpClient.h"
#include "utility/UdpServer.h"
#include "utility/UploadClient.h"
#include "utility/UploadServer.h"

#ifdef __clang__
#pragma clang diagnostic ignored "-Wkeyword-macro"
#endif
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#define private public
#include "utility/Deque.h"
#include "utility/Json.h"
#undef private

namespace Tarn::Generic {
namespace {

constexpr bool Ascending(std::initializer_list<size_t> offsets) {
  return std::adjacent_find(offsets.begin(), offsets.end(), std::greater_equal<>()) ==
             offsets.end() &&
         *offsets.begin() == sizeof(void*);
}

#define AT(field) offsetof(Class, field)

namespace deque {
using Class = CDeque;
static_assert(Ascending({AT(m_bRunning), AT(m_threadCount), AT(m_pThreads), AT(m_queue), AT(m_lock),
                         AT(m_event), AT(m_waitTime), AT(m_name), AT(m_pArg), AT(m_pCallback)}));
}  // namespace deque

namespace json {
using Class = CJson;
static_assert(Ascending({AT(m_release), AT(m_pNode), AT(m_pText), AT(m_children)}));
}  // namespace json

namespace log {
using Class = CLog;
static_assert(Ascending({AT(m_type), AT(m_info)}));
}  // namespace log

namespace async_log {
using Class = CAsyncLog;
static_assert(Ascending({AT(m_dLastWrite), AT(m_lock), AT(m_dataEvent), AT(m_stopEvent),
                         AT(m_thread), AT(m_queue), AT(m_pFile), AT(m_level), AT(m_terminal),
                         AT(m_bSync), AT(m_bCloseAfterWrite), AT(m_path), AT(m_date),
                         AT(m_filePath), AT(m_charSet)}));
}  // namespace async_log

namespace ping {
using Class = CPing_linux;
static_assert(Ascending({AT(m_host), AT(m_ip), AT(m_lost), AT(m_avg), AT(m_min), AT(m_max),
                         AT(m_sum), AT(m_sent), AT(m_received), AT(m_sockfd), AT(m_id), AT(m_dest),
                         AT(m_from), AT(m_sendPacket), AT(m_recvPacket), AT(m_recvTime),
                         AT(m_timeout), AT(m_count)}));
static_assert(sizeof(CPing) == sizeof(void*));
}  // namespace ping

namespace tcp_client {
using Class = CTcpClient;
static_assert(Ascending(
    {AT(m_sockfd),     AT(m_maxBufferLen), AT(m_ip),         AT(m_port),      AT(m_localPort),
     AT(m_buffer),     AT(m_dataLen),      AT(m_bReading),   AT(m_bWritable), AT(m_connectThread),
     AT(m_readThread), AT(m_bEndian),      AT(m_procType),   AT(m_pUser),     AT(m_onConn),
     AT(m_onMsg),      AT(m_bConnecting),  AT(m_bHeartOpen), AT(m_heartTime), AT(m_heartInterval),
     AT(m_httpFlag),   AT(m_httpValue1),   AT(m_httpValue2), AT(m_httpField), AT(m_httpValue3),
     AT(m_httpValue4)}));
}  // namespace tcp_client

namespace tcp_server {
using Class = CTcpServer;
static_assert(Ascending({AT(m_port), AT(m_listenfd), AT(m_bReading), AT(m_maxBufferLen),
                         AT(m_bEndian), AT(m_procType), AT(m_acceptThread), AT(m_readThread),
                         AT(m_clientList), AT(m_clientLock), AT(m_pUser), AT(m_onConnect),
                         AT(m_onDisconnect), AT(m_onMsg), AT(m_removeDeque)}));
}  // namespace tcp_server

namespace udp_client {
using Class = CUdpClient;
static_assert(Ascending({AT(m_sockfd), AT(m_maxBufferLen), AT(m_ip), AT(m_port), AT(m_localIp),
                         AT(m_localPort), AT(m_buffer), AT(m_dataLen), AT(m_packetLen),
                         AT(m_bReading), AT(m_readThread), AT(m_pUser), AT(m_onMsg),
                         AT(m_bMultiCast)}));
}  // namespace udp_client

namespace udp_server {
using Class = CUdpServer;
static_assert(Ascending({AT(m_bReading), AT(m_sockfd), AT(m_buffer), AT(m_maxBufferLen),
                         AT(m_onMsg), AT(m_pUser), AT(m_port), AT(m_readThread), AT(m_localIp),
                         AT(m_bMultiCast), AT(m_groupIp)}));
}  // namespace udp_server

namespace ftp {
using Class = CFtp;
static_assert(Ascending({AT(m_bConnected)}) && sizeof(CFtp) == 16);
}  // namespace ftp

namespace upload_client {
using Class = CUploadClient;
static_assert(Ascending({AT(m_pTcpClient), AT(m_pPing), AT(m_bConnected), AT(m_szIp), AT(m_port),
                         AT(m_blockLen), AT(m_progress), AT(m_onResult), AT(m_onProgress),
                         AT(m_pUser), AT(m_errorPath), AT(m_localPath), AT(m_szExt), AT(m_pFile)}));
}  // namespace upload_client

namespace upload_server {
using Class = CUploadServer;
static_assert(Ascending({AT(m_pTcpServer), AT(m_bStarted), AT(m_requests), AT(m_lock),
                         AT(m_blockLen), AT(m_folder)}));
}  // namespace upload_server

namespace download_client {
using Class = CDownloadClient;
static_assert(Ascending({AT(m_pTcpClient), AT(m_pPing),    AT(m_bConnected), AT(m_szIp),
                         AT(m_port),       AT(m_onResult), AT(m_onProgress), AT(m_pUser),
                         AT(m_file),       AT(m_subDir),   AT(m_localDir),   AT(m_localPath),
                         AT(m_szMd5),      AT(m_buffer),   AT(m_maxlen),     AT(m_len),
                         AT(m_rate),       AT(m_fileLen),  AT(m_pFile),      AT(errorcode)}));
}  // namespace download_client

namespace download_server {
using Class = CDownloadServer;
static_assert(Ascending({AT(m_pTcpServer), AT(m_pDeque), AT(m_bStarted), AT(m_root), AT(m_blockLen),
                         AT(m_links), AT(m_lock)}));
}  // namespace download_server

}  // namespace
}  // namespace Tarn::Generic
