/// @file
/// Every public header. Public: may include only public headers.
#ifndef TARN_GENERIC_GENERIC_H
#define TARN_GENERIC_GENERIC_H

#include <Tarn/Generic/Aes.h>
#include <Tarn/Generic/Api.h>
#include <Tarn/Generic/Application.h>
#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/ConvertLonLat.h>
#include <Tarn/Generic/Crc.h>
#include <Tarn/Generic/DateTime.h>
#include <Tarn/Generic/Deque.h>
#include <Tarn/Generic/Directory.h>
#include <Tarn/Generic/DownloadClient.h>
#include <Tarn/Generic/DownloadServer.h>
#include <Tarn/Generic/Encoding.h>
#include <Tarn/Generic/Framing.h>
#include <Tarn/Generic/Ftp.h>
#include <Tarn/Generic/HmacSHA256.h>
#include <Tarn/Generic/Json.h>
#include <Tarn/Generic/LocalIP.h>
#include <Tarn/Generic/Lock.h>
#include <Tarn/Generic/Log.h>
#include <Tarn/Generic/Md5.h>
#include <Tarn/Generic/Ping.h>
#include <Tarn/Generic/Profile.h>
#include <Tarn/Generic/Setting.h>
#include <Tarn/Generic/Sha256.h>
#include <Tarn/Generic/StringEx.h>
#include <Tarn/Generic/SyncEvent.h>
#include <Tarn/Generic/TcpClient.h>
#include <Tarn/Generic/TcpServer.h>
#include <Tarn/Generic/Thread.h>
#include <Tarn/Generic/UdpClient.h>
#include <Tarn/Generic/UdpServer.h>
#include <Tarn/Generic/UploadClient.h>
#include <Tarn/Generic/UploadServer.h>

#endif  // TARN_GENERIC_GENERIC_H
