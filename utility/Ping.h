// The pinger behind IPing and the ICMP echo engine.
#ifndef TARN_UTILITY_PING_H
#define TARN_UTILITY_PING_H

#include <Tarn/Generic/Ping.h>
#include <netinet/in.h>
#include <sys/time.h>

#include <string>

namespace Tarn::Generic {

class TARN_API CPing : public IPing {
 public:
  CPing();
  ~CPing() override;

  int Ping(unsigned int ip, unsigned int timeout) override;
  int Ping(char* ip, unsigned int timeout) override;
};

/// A complete raw-socket ping with a report on standard output, for one thread. CPing does not send
/// with it: call CreateSocket, send_packet, recv_packet and statistics in this order. Opening the
/// socket needs root, which is given up again at once.
class TARN_API CPing_linux {
 public:
  /// @param host     dotted address or name; null: empty
  /// @param timeout  for each reply, in milliseconds, 20000 at most
  CPing_linux(const char* host, int timeout);
  virtual ~CPing_linux();
  CPing_linux(const CPing_linux&) = delete;
  CPing_linux& operator=(const CPing_linux&) = delete;

  /// Opens the socket and finds the destination. 1 on success; 0 failed, and printed why.
  int CreateSocket();
  /// @return 1
  int CloseSocket();
  /// @return 1, without sending anything
  int ping(int count);
  /// Sends the requests that are still to be sent.
  void send_packet();
  /// Receives until every request has its reply, none comes in time, or receiving fails.
  void recv_packet();
  /// Takes one received IPv4 packet. 0: it is a reply to this object; -1: it is not, and is
  /// printed.
  int unpack(char* buf, int len);
  /// Makes the request number `seq` in the send buffer; its length.
  int pack(int seq);
  /// The Internet checksum; 0xFFFF when there is no data.
  static unsigned short cal_chksum(unsigned short* data, int len);
  /// *out -= *in
  void tv_sub(timeval* out, timeval* in);
  /// Prints the summary and computes the average. The number is ignored.
  void statistics(int ignored);

  // The state is open to tests.
  std::string m_host;  // as given
  std::string m_ip;    // the host, then its dotted address
  int m_lost;
  double m_avg;  // round trips in milliseconds; -1: none yet
  double m_min;
  double m_max;
  double m_sum;
  int m_sent;
  int m_received;
  int m_sockfd;  // owned; 0: none
  int m_id;      // its low 16 bits mark our requests
  sockaddr_in m_dest;
  sockaddr_in m_from;  // of the packet received last
  char m_sendPacket[4096];
  char m_recvPacket[4096];
  timeval m_recvTime;  // of the packet received last
  int m_timeout;       // milliseconds
  int m_count;         // requests to send

 private:
  [[nodiscard]] int Socket() const;
  bool FindDestination();
  bool WaitForPacket();
  bool ReceivePacket();
};

}  // namespace Tarn::Generic

#endif  // TARN_UTILITY_PING_H
