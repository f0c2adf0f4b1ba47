// A host as others write it: public headers, the library, nothing else.
#include <Tarn/Generic/Generic.h>

#include <cstdio>
#include <cstring>
#include <string>

using namespace Tarn::Generic;

static int Check(bool holds, const char* what) {
  if (!holds) std::printf("not so: %s\n", what);
  return holds ? 0 : 1;
}

int main() {
  int failures = 0;
  CMd5 digest;
  failures += Check(std::strcmp(digest.String(""), "d41d8cd98f00b204e9800998ecf8427e") == 0, "md5");
  CRC checksum;
  failures += Check(
      checksum.CRC_32(reinterpret_cast<const unsigned char*>("123456789"), 9) == 0xCBF43926, "crc");
  CStringEx text(
      "a long text that does not fit into the inline buffer of the string class, so it is on the "
      "heap");
  text += CStringEx("!");
  failures += Check(text.GetData()[0] == 'a' && std::string(text.c_str()).back() == '!', "string");
  failures += Check(CDateTime().Year() >= 2024, "date");
  SyncEvent event;
  event.Set();
  failures += Check(event.TimedWait(0) == 1, "event");
  ITcpClient* client = ITcpClient::Create();
  failures += Check(client != nullptr && client->SendMsg("x", 1) == -1, "client");
  ITcpClient::Delete(client);
  IUploadServer* server = IUploadServer::Create();
  failures += Check(server != nullptr && server->Stop(), "server");
  IUploadServer::Delete(server);
  IJson* json = IJson::CreateObject("{\"n\": 2.5}", 1);
  failures += Check(json != nullptr && json->GetDouble("n") == 2.5, "json");
  IJson::Delete(json);
  failures += Check(Table_CRC8[1] == 0x7F && g_nOutLevel == 4, "data");
  return failures;
}
