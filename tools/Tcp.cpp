// tarn tcp: framed messages to and from a wire.
#include <Tarn/Generic/TcpClient.h>
#include <Tarn/Generic/TcpServer.h>

#include <atomic>
#include <climits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tools/Console.h"
#include "tools/Messages.h"
#include "tools/Network.h"
#include "tools/StopSignals.h"
#include "tools/Wire.h"

namespace tarn_tool {

namespace {

using Tarn::Generic::ConnType;
using Tarn::Generic::ITcpClient;
using Tarn::Generic::ITcpServer;
using Tarn::Generic::protocol_type;

/// How both sides cut the stream.
struct FramingOptions {
  std::string framing = "byte";
  bool littleEndian = false;
  int buffer = 1048576;  ///< bytes; a longer message ends the connection
};

struct TcpListenOptions : ListenOptions, FramingOptions {};
struct TcpSendOptions : SendOptions, FramingOptions {};

const std::map<std::string, protocol_type>& Framings() {
  static const std::map<std::string, protocol_type> framings{
      {"string", Tarn::Generic::PROTOCOL_STRING},
      {"byte", Tarn::Generic::PROTOCOL_BYTE},
      {"none", Tarn::Generic::PROTOCOL_NONE},
      {"string-recv", Tarn::Generic::PROTOCOL_STRING_RECV},
      {"string-send", Tarn::Generic::PROTOCOL_STRING_SEND},
      {"http", Tarn::Generic::PROTOCOL_HTTP}};
  return framings;
}

void AddFraming(CLI::App& verb, FramingOptions& options) {
  verb.add_option("--framing", options.framing,
                  "string: lines; byte: a 4-byte length before each message; none: as it comes;\n"
                  "string-recv, string-send: lines one way only; http: as ITcpClient has it")
      ->check(CLI::IsMember(Framings()))
      ->capture_default_str();
  verb.add_flag("--little-endian", options.littleEndian, "Length prefixes little-endian");
  verb.add_option("--buffer", options.buffer, "Bytes of the receive buffer; a message must fit")
      ->check(CLI::Range(1, INT_MAX))
      ->capture_default_str();
}

/// Gives a client or a server its framing.
template <typename Endpoint>
void Configure(Endpoint& endpoint, const FramingOptions& options) {
  endpoint.SetProcType(Framings().at(options.framing));
  endpoint.SetMaxBufferLen(options.buffer);
  if (options.littleEndian) endpoint.DisableEndian();
}

struct ServerDeleter {
  void operator()(ITcpServer* server) const { ITcpServer::Delete(server); }
};
struct ClientDeleter {
  void operator()(ITcpClient* client) const { ITcpClient::Delete(client); }
};

/// What the server's callbacks work on.
struct Receiver {
  Messages& messages;
  const bool echo;
  ITcpServer* server = nullptr;

  static void OnConnect(void* /*user*/, unsigned int /*sid*/, unsigned int cid, char* ip) {
    Say("client %u connected from %s", cid, ip);
  }
  static void OnDisconnect(void* /*user*/, unsigned int /*sid*/, unsigned int cid) {
    Say("client %u disconnected", cid);
  }
  static void OnMessage(void* user, unsigned int /*sid*/, unsigned int cid, const char* data,
                        int length) {
    const auto* self = static_cast<Receiver*>(user);
    // Before it is shown, which may be the end.
    if (self->echo && self->server->SendMsg(static_cast<int>(cid), data, length) < 0) {
      Complain("the answer to client %u could not be sent", cid);
    }
    self->messages.Show("client " + std::to_string(cid), {data, static_cast<size_t>(length)});
  }
};

int ListenTcp(const TcpListenOptions& options, const StopSignals& signals) {
  Messages messages(options);
  if (!messages.Valid()) return 1;
  Receiver receiver{messages, options.echo};
  const std::unique_ptr<ITcpServer, ServerDeleter> server(ITcpServer::Create());
  if (!server) return 1;
  receiver.server = server.get();
  const int port = StartOn(options.port, Transport::kTcp, [&](int candidate) {
    // A failed start drops the settings.
    Configure(*server, options);
    server->RegisterEvent(&receiver, Receiver::OnConnect, Receiver::OnDisconnect,
                          Receiver::OnMessage);
    return server->Start(candidate) == 1;
  });
  if (port == 0) {
    Complain("TCP port %d cannot be listened on", options.port);
    return 1;
  }
  Say("listening on TCP port %d, framing %s", port, options.framing.c_str());
  const int status = Listen(messages, signals);
  server->Stop();
  return status;
}

/// What the client's callbacks work on.
struct Conversation {
  Messages& messages;
  const std::string& peer;
  std::atomic<bool> connected{false};

  static void OnConnection(void* user, ConnType type) {
    auto* self = static_cast<Conversation*>(user);
    if (type == Tarn::Generic::CONN_SUCCESS) {
      Say("connected to %s", self->peer.c_str());
      self->connected = true;
      return self->messages.Wake();
    }
    Complain("%s %s", self->peer.c_str(), Words(type));
    self->messages.End();
  }
  static void OnMessage(void* user, const char* data, int length) {
    const auto* self = static_cast<Conversation*>(user);
    self->messages.Show(self->peer, {data, static_cast<size_t>(length)});
  }
  static const char* Words(ConnType type) {
    switch (type) {
      case Tarn::Generic::CONN_FAILED:
        return "cannot be reached";
      case Tarn::Generic::CONN_CLOSED:
        return "closed the connection, or a message did not fit the buffer";
      default:
        return "sent what is no message, or reading failed";
    }
  }
};

int SendTcp(const TcpSendOptions& options, const StopSignals& signals) {
  std::optional<Target> target = ParseTarget(options.target);
  if (!target) return 1;
  Messages messages(options);
  if (!messages.Valid()) return 1;
  Conversation conversation{messages, options.target};
  const std::unique_ptr<ITcpClient, ClientDeleter> client(ITcpClient::Create());
  if (!client) return 1;
  Configure(*client, options);
  client->RegisterEvent(&conversation, Conversation::OnConnection, Conversation::OnMessage);
  constexpr int kThreaded = -1;
  if (client->Connect(target->address.data(), target->port, kThreaded) != 1) {
    Complain("no connection could be begun");
    return 1;
  }
  while (!messages.Done() && !conversation.connected) {
    if (const int signal = signals.Wait({messages.Descriptor()})) return Interrupted(signal);
  }
  if (!conversation.connected) return 1;
  return Converse(options, messages, signals, [&](std::string_view message) {
    const int length = static_cast<int>(message.size());
    const int onWire = client->SendMsg(message.data(), length);
    if (onWire < 0) {
      Complain("a message of %d bytes could not be sent", length);
      return false;
    }
    Say("sent %d bytes, %d on the wire", length, onWire);
    return true;
  });
}

}  // namespace

void AddTcp(CLI::App& app, std::function<int()>& verb) {
  CLI::App* tcp = app.add_subcommand("tcp", "Send framed messages, or show and answer them");
  tcp->require_subcommand(1);

  const auto listen = std::make_shared<TcpListenOptions>();
  CLI::App* listening = tcp->add_subcommand("listen", "Show what arrives until SIGINT or SIGTERM");
  AddOptions(*listening, *listen);
  AddFraming(*listening, *listen);
  listening->callback([listen, &verb] {
    verb = [listen] {
      return WithStopSignals(
          [&](const StopSignals& signals) { return ListenTcp(*listen, signals); });
    };
  });

  const auto send = std::make_shared<TcpSendOptions>();
  CLI::App* sending = tcp->add_subcommand("send", "Send messages and show the answers");
  AddOptions(*sending, *send);
  AddFraming(*sending, *send);
  sending->callback([send, &verb] {
    verb = [send] {
      return WithStopSignals([&](const StopSignals& signals) { return SendTcp(*send, signals); });
    };
  });
}

}  // namespace tarn_tool
