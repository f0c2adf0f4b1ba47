// tarn udp: datagrams to and from a wire.
#include <Tarn/Generic/UdpClient.h>
#include <Tarn/Generic/UdpServer.h>

#include <array>
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

using Tarn::Generic::IUdpClient;
using Tarn::Generic::IUdpServer;

struct UdpListenOptions : ListenOptions {
  std::string address;  ///< of this end; empty: all
  std::string group;    ///< multicast; empty: none
};

struct UdpSendOptions : SendOptions {
  std::string address;  ///< of this end; empty: the library's choice
  int localPort = 0;
  bool group = false;  ///< the target is a multicast group
};

struct ServerDeleter {
  void operator()(IUdpServer* server) const { IUdpServer::Delete(server); }
};
struct ClientDeleter {
  void operator()(IUdpClient* client) const { IUdpClient::Delete(client); }
};

/// What the server's callback works on.
struct Receiver {
  Messages& messages;
  const bool echo;
  IUdpServer* server = nullptr;

  static void OnMessage(void* user, char* ip, int port, const char* data, int length) {
    const auto* self = static_cast<Receiver*>(user);
    // Before it is shown, which may be the end.
    if (self->echo && self->server->SendMsg(ip, port, data, length) != length) {
      Complain("the answer to %s:%d could not be sent", ip, port);
    }
    self->messages.Show(std::string(ip) + ":" + std::to_string(port),
                        {data, static_cast<size_t>(length)});
  }
};

int ListenUdp(const UdpListenOptions& options, const StopSignals& signals) {
  Messages messages(options);
  if (!messages.Valid()) return 1;
  Receiver receiver{messages, options.echo};
  const std::unique_ptr<IUdpServer, ServerDeleter> server(IUdpServer::Create());
  if (!server) return 1;
  if (!options.address.empty()) server->SetLocalIP(options.address.c_str());
  receiver.server = server.get();
  const int port = StartOn(options.port, Transport::kUdp, [&](int candidate) {
    // A failed start drops the callback.
    server->RegisterEvent(&receiver, Receiver::OnMessage);
    const bool grouped = !options.group.empty();
    return (grouped ? server->ConnectMultiCast(options.group.c_str(), candidate)
                    : server->Start(candidate)) == 1;
  });
  if (port == 0) {
    Complain("UDP port %d cannot be listened on", options.port);
    return 1;
  }
  Say("listening on UDP port %d", port);
  const int status = Listen(messages, signals);
  server->Stop();
  return status;
}

int SendUdp(const UdpSendOptions& options, const StopSignals& signals) {
  const std::optional<Target> target = ParseTarget(options.target);
  if (!target) return 1;
  Messages messages(options);
  if (!messages.Valid()) return 1;
  struct Context {
    Messages& messages;
    const std::string& peer;
  } context{messages, options.target};
  const std::unique_ptr<IUdpClient, ClientDeleter> client(IUdpClient::Create());
  if (!client) return 1;
  client->SetLocalAddr(options.address.c_str(), options.localPort);
  client->RegisterEvent(&context, [](void* user, const char* data, int length) {
    const auto* self = static_cast<Context*>(user);
    self->messages.Show(self->peer, {data, static_cast<size_t>(length)});
  });
  std::array<char, INET_ADDRSTRLEN> ip = target->address;
  const int connected = options.group ? client->ConnectMultiCast(ip.data(), target->port)
                                      : client->Connect(ip.data(), target->port);
  if (connected != 1) {
    Complain("no socket could be bound");
    return 1;
  }
  return Converse(options, messages, signals, [&](std::string_view message) {
    const int length = static_cast<int>(message.size());
    if (client->SendMsg(message.data(), length) != length) {
      Complain("a message of %d bytes could not be sent", length);
      return false;
    }
    Say("sent %d bytes to %s:%d", length, ip.data(), target->port);
    return true;
  });
}

}  // namespace

void AddUdp(CLI::App& app, std::function<int()>& verb) {
  CLI::App* udp = app.add_subcommand("udp", "Send datagrams, or show and answer them");
  udp->require_subcommand(1);

  const auto listen = std::make_shared<UdpListenOptions>();
  CLI::App* listening = udp->add_subcommand("listen", "Show what arrives until SIGINT or SIGTERM");
  AddOptions(*listening, *listen);
  listening->add_option("--address", listen->address, "Address of this end; all by default");
  listening->add_option("--group", listen->group, "Multicast group to join");
  listening->callback([listen, &verb] {
    verb = [listen] {
      return WithStopSignals(
          [&](const StopSignals& signals) { return ListenUdp(*listen, signals); });
    };
  });

  const auto send = std::make_shared<UdpSendOptions>();
  CLI::App* sending = udp->add_subcommand("send", "Send messages and show the answers");
  AddOptions(*sending, *send);
  sending->add_option("--address", send->address, "Address of this end; the host's own by default");
  sending->add_option("--local-port", send->localPort, "Port of this end; 0 takes a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  sending->add_flag("--group", send->group,
                    "HOST is a multicast group; its answers are heard with --address 0.0.0.0");
  sending->callback([send, &verb] {
    verb = [send] {
      return WithStopSignals([&](const StopSignals& signals) { return SendUdp(*send, signals); });
    };
  });
}

}  // namespace tarn_tool
