# The library's sources in the order of utility/README.md; nothing is globbed.
set(TARN_SOURCES
    # Ground floor: pure logic
    utility/core/Format.cpp
    utility/core/TextSearch.cpp
    utility/core/Deadline.cpp
    utility/core/Base64.cpp
    utility/core/HexText.cpp
    utility/core/IniText.cpp
    utility/core/LogText.cpp
    utility/core/LogQueue.cpp
    utility/core/ReceiveBuffer.cpp
    utility/core/DatagramRuns.cpp
    utility/core/Framing.cpp
    utility/core/IcmpEcho.cpp
    utility/core/TransferWire.cpp
    utility/core/UploadWire.cpp
    utility/core/DownloadWire.cpp
    utility/core/CpuFeatures.cpp
    utility/core/Md5Block.cpp
    utility/core/Sha256Block.cpp
    utility/core/CrcFold.cpp
    utility/core/AesBlock.cpp
    utility/core/PackedDecimal.cpp
    utility/core/Transforms.cpp
    utility/core/DirectProblem.cpp
    utility/core/GreatCircle.cpp
    utility/core/PlaneAngles.cpp
    utility/core/Optics.cpp
    utility/core/PlaneGeometry.cpp
    utility/core/PolygonText.cpp
    utility/core/Camera.cpp
    utility/core/TrackFilter.cpp
    # Ground floor: platform
    utility/os/File.cpp
    utility/os/NumberText.cpp
    utility/os/Charset.cpp
    utility/os/LineFile.cpp
    utility/os/WallClock.cpp
    utility/os/StreamFile.cpp
    utility/os/ThreadOwner.cpp
    utility/os/Wait.cpp
    utility/os/Socket.cpp
    utility/os/DatagramSocket.cpp
    utility/os/Icmp.cpp
    utility/os/Interfaces.cpp
    utility/os/Readiness.cpp
    utility/os/Connection.cpp
    # Core runtime
    utility/StringEx.cpp
    utility/DateTime.cpp
    utility/Lock.cpp
    utility/SyncEvent.cpp
    utility/Application.cpp
    utility/Thread.cpp
    utility/Deque.cpp
    utility/Directory.cpp
    # Text and data
    utility/Encoding.cpp
    utility/Profile.cpp
    utility/Setting.cpp
    utility/CJsonForward.cpp
    utility/Json.cpp
    # Logging
    utility/Log.cpp
    utility/AsyncLog.cpp
    # Network transport
    utility/Ping.cpp
    utility/LocalIP.cpp
    utility/UdpSocket.cpp
    utility/UdpClient.cpp
    utility/UdpServer.cpp
    utility/TcpClient.cpp
    utility/TcpServer.cpp
    utility/Ftp.cpp
    # Cryptography
    utility/Md5.cpp
    utility/Sha256.cpp
    utility/HmacSHA256.cpp
    utility/Crc.cpp
    utility/Aes.cpp
    # File transfer
    utility/Transfer.cpp
    utility/UploadClient.cpp
    utility/UploadServer.cpp
    utility/DownloadClient.cpp
    utility/DownloadServer.cpp
    # Geodesy and geometry
    utility/ConvertLonLat.cpp
    utility/ConvertLonLatPlane.cpp
    utility/ConvertLonLatCamera.cpp)

# The fuzz targets: fuzz/<name>.cpp with its inputs in fuzz/corpus/<name>/.
set(TARN_FUZZERS
    Base64Fuzzer
    HexTextFuzzer
    IniTextFuzzer
    DatagramRunsFuzzer
    FramingFuzzer
    UploadWireFuzzer
    DownloadWireFuzzer
    PolygonTextFuzzer)
