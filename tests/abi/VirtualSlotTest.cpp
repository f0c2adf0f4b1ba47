// Where every virtual operation stands. Hosts call them by slot number and derive from the
// interfaces, so neither their order nor their number may ever change. The tables are written by
// hand; both what the public headers make of a call and what the library file holds in a slot are
// compared with them.
#include <Tarn/Generic/Generic.h>
#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/abi/ShippedLibrary.h"
#include "tests/support/Slots.h"
#include "utility/Deque.h"

namespace Tarn::Generic {
namespace {

using namespace tarn_test;
using testing::Contains;
using testing::UnorderedElementsAreArray;

struct Operation {
  std::string name;                // with its arguments, without its class
  std::optional<size_t> callSlot;  // where the headers call it; not known for destructors
};

struct Table {
  const char* interface;  // null: the class stands for itself
  const char* concrete;
  std::vector<Operation> operations;
  std::vector<Operation> further;  // virtual operations of the concrete class only
};

/// The arguments of a function type in brackets, as in the name of a symbol.
std::string ArgumentsOf(const std::type_info& function) {
  const std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(function.name(), nullptr, nullptr, nullptr), &std::free);
  // "void (int)", "CStringEx (char const*)": the result, a blank, the arguments.
  const std::string whole = text.get();
  return whole.substr(whole.find(" (") + 1);
}

/// An operation by its exact type, which also chooses among overloads.
template <typename Function, typename Class>
Operation Virtual(Function Class::*member, const char* name) {
  return {name + ArgumentsOf(typeid(Function)), SlotOf(member)};
}

const Operation kDestroy{"~ [complete]", {}};
const Operation kDelete{"~ [deleting]", {}};

using OnData = void (*)(void*, const char*, int);
using OnProgress = void (*)(void*, const char*, int);

// clang-format off
const std::vector<Table>& Tables() {
  static const std::vector<Table> tables = {
    {nullptr, "CThread", {
       kDestroy, kDelete,
       Virtual<void(const char*)>(&CThread::SetThreadName, "SetThreadName"),
       Virtual<bool()>(&CThread::Start, "Start"),
       Virtual<bool(void*, void (*)(void*))>(&CThread::Start, "Start"),
       Virtual<void()>(&CThread::Stop, "Stop"),
       Virtual<void(int)>(&CThread::Stop, "Stop"),
       Virtual<void()>(&CThread::ThreadProc, "ThreadProc"),
     }, {}},
    {"IDeque", "CDeque", {
       kDestroy, kDelete,
       Virtual<bool(int)>(&IDeque::Start, "Start"),
       Virtual<void()>(&IDeque::Stop, "Stop"),
       Virtual<void(int)>(&IDeque::Stop, "Stop"),
       Virtual<int()>(&IDeque::GetLength, "GetLength"),
       Virtual<void(const char*)>(&IDeque::SetDequeName, "SetDequeName"),
       Virtual<const char*()>(&IDeque::GetDequeName, "GetDequeName"),
       Virtual<void(void*, void (*)(void*, void*))>(&IDeque::RegisterEvent, "RegisterEvent"),
       Virtual<void(void*)>(&IDeque::PushOneData, "PushOneData"),
       Virtual<void(unsigned int)>(&IDeque::SetWaitTime, "SetWaitTime"),
       Virtual<bool()>(&IDeque::IsWorking, "IsWorking"),
     }, {
       Virtual<bool(int)>(&CDeque::IsBeyondMax, "IsBeyondMax"),
       Virtual<bool()>(&CDeque::IsDequeEmpty, "IsDequeEmpty"),
       Virtual<void*()>(&CDeque::PopOneFromDeque, "PopOneFromDeque"),
       Virtual<void()>(&CDeque::ThreadProc, "ThreadProc"),
     }},
    {nullptr, "CDirectory", {
       Virtual<char*()>(&CDirectory::GetCurrentPath, "GetCurrentPath"),
       Virtual<bool(const char*)>(&CDirectory::IsExist, "IsExist"),
       Virtual<bool(const char*)>(&CDirectory::CreateDir, "CreateDir"),
       Virtual<bool(const char*)>(&CDirectory::RemoveDir, "RemoveDir"),
       Virtual<CStringEx(const char*)>(&CDirectory::GetPathName, "GetPathName"),
       Virtual<CStringEx(const char*)>(&CDirectory::GetPathDir, "GetPathDir"),
     }, {}},
    {nullptr, "CSetting", {
       Virtual<bool(const char*)>(&CSetting::Load, "Load"),
       Virtual<const char*(const char*, const char*, const char*)>(&CSetting::GetString, "GetString"),
       Virtual<std::string(const char*, const char*, const char*)>(&CSetting::GetString2, "GetString2[abi:cxx11]"),
       Virtual<int(const char*, const char*, int)>(&CSetting::GetInt, "GetInt"),
       Virtual<float(const char*, const char*, float)>(&CSetting::GetFloat, "GetFloat"),
       Virtual<int(const char*, const char*, const char*)>(&CSetting::WriteString, "WriteString"),
       Virtual<int(const char*, const char*, int)>(&CSetting::WriteInt, "WriteInt"),
       Virtual<int(const char*, const char*, float)>(&CSetting::WriteFloat, "WriteFloat"),
     }, {}},
    {"IJson", "CJson", {
       kDestroy, kDelete,
       Virtual<char*(int)>(&IJson::ToString, "ToString"),
       Virtual<int()>(&IJson::GetItemCount, "GetItemCount"),
       Virtual<IJson*(int)>(&IJson::GetItem, "GetItem"),
       Virtual<IJson*(const char*)>(&IJson::GetItem, "GetItem"),
       Virtual<int()>(&IJson::GetInt, "GetInt"),
       Virtual<int(const char*)>(&IJson::GetInt, "GetInt"),
       Virtual<double()>(&IJson::GetDouble, "GetDouble"),
       Virtual<double(const char*)>(&IJson::GetDouble, "GetDouble"),
       Virtual<const char*()>(&IJson::GetString, "GetString"),
       Virtual<const char*(const char*)>(&IJson::GetString, "GetString"),
       Virtual<void(const char*, const char*)>(&IJson::AddString, "AddString"),
       Virtual<void(const char*, double)>(&IJson::AddNumber, "AddNumber"),
       Virtual<void(IJson*, int)>(&IJson::AddItem, "AddItem"),
       Virtual<void(const char*, IJson*, int)>(&IJson::AddItem, "AddItem"),
     }, {}},
    {"ILog", "CLog", {
       kDestroy, kDelete,
       Virtual<void(const char*, ...)>(&ILog::Write, "Write"),
     }, {}},
    {"IAsyncLog", "CAsyncLog", {
       Virtual<void(CharSet)>(&IAsyncLog::SetCharSet, "SetCharSet"),
       Virtual<void(int, LogLevel, bool, bool)>(&IAsyncLog::SetWriteLogMode, "SetWriteLogMode"),
       Virtual<void(int&, LogLevel&, bool&, bool&)>(&IAsyncLog::GetWriteLogMode, "GetWriteLogMode"),
       Virtual<int(LogLevel, const char*, ...)>(&IAsyncLog::WriteLog, "WriteLog"),
       Virtual<void()>(&IAsyncLog::Flush, "Flush"),
       kDestroy, kDelete,
     }, {}},
    {"IPing", "CPing", {
       kDestroy, kDelete,
       Virtual<int(unsigned int, unsigned int)>(&IPing::Ping, "Ping"),
       Virtual<int(char*, unsigned int)>(&IPing::Ping, "Ping"),
     }, {}},
    {nullptr, "CPing_linux", {kDestroy, kDelete}, {}},
    {"ITcpClient", "CTcpClient", {
       kDestroy, kDelete,
       Virtual<void(void*, void (*)(void*, ConnType), OnData)>(&ITcpClient::RegisterEvent, "RegisterEvent"),
       Virtual<int(const char*, int, int)>(&ITcpClient::Connect, "Connect"),
       Virtual<void()>(&ITcpClient::Disconnect, "Disconnect"),
       Virtual<int(const char*, int)>(&ITcpClient::SendMsg, "SendMsg"),
       Virtual<void(int)>(&ITcpClient::SetMaxBufferLen, "SetMaxBufferLen"),
       Virtual<void(protocol_type)>(&ITcpClient::SetProcType, "SetProcType"),
       Virtual<void()>(&ITcpClient::DisableEndian, "DisableEndian"),
       Virtual<void(bool, int, int)>(&ITcpClient::StartHeartOpen, "StartHeartOpen"),
     }, {}},
    {"ITcpServer", "CTcpServer", {
       kDestroy, kDelete,
       Virtual<void(void*, void (*)(void*, unsigned int, unsigned int, char*),
                    void (*)(void*, unsigned int, unsigned int),
                    void (*)(void*, unsigned int, unsigned int, const char*, int))>(
           &ITcpServer::RegisterEvent, "RegisterEvent"),
       Virtual<int(int)>(&ITcpServer::Start, "Start"),
       Virtual<void()>(&ITcpServer::Stop, "Stop"),
       Virtual<int(int, const char*, int)>(&ITcpServer::SendMsg, "SendMsg"),
       Virtual<int(int)>(&ITcpServer::Removeclient, "Removeclient"),
       Virtual<void(int)>(&ITcpServer::SetMaxBufferLen, "SetMaxBufferLen"),
       Virtual<void(protocol_type)>(&ITcpServer::SetProcType, "SetProcType"),
       Virtual<void()>(&ITcpServer::DisableEndian, "DisableEndian"),
     }, {}},
    {"IUdpClient", "CUdpClient", {
       kDestroy, kDelete,
       Virtual<void(void*, OnData)>(&IUdpClient::RegisterEvent, "RegisterEvent"),
       Virtual<int(const char*, int)>(&IUdpClient::Connect, "Connect"),
       Virtual<int(const char*, int)>(&IUdpClient::SetLocalAddr, "SetLocalAddr"),
       Virtual<int(char*, int)>(&IUdpClient::ConnectMultiCast, "ConnectMultiCast"),
       Virtual<void()>(&IUdpClient::Disconnect, "Disconnect"),
       Virtual<int(const char*, int)>(&IUdpClient::SendMsg, "SendMsg"),
       Virtual<void(int)>(&IUdpClient::SetMaxBufferLen, "SetMaxBufferLen"),
     }, {}},
    {"IUdpServer", "CUdpServer", {
       kDestroy, kDelete,
       Virtual<void(void*, void (*)(void*, char*, int, const char*, int))>(&IUdpServer::RegisterEvent,
                                                                           "RegisterEvent"),
       Virtual<int(int)>(&IUdpServer::Start, "Start"),
       Virtual<void(const char*)>(&IUdpServer::SetLocalIP, "SetLocalIP"),
       Virtual<int(const char*, int)>(&IUdpServer::ConnectMultiCast, "ConnectMultiCast"),
       Virtual<void()>(&IUdpServer::Stop, "Stop"),
       Virtual<int(const char*, int, const char*, int)>(&IUdpServer::SendMsg, "SendMsg"),
       Virtual<void(int)>(&IUdpServer::SetMaxBufferLen, "SetMaxBufferLen"),
       Virtual<int()>(&IUdpServer::IsWorking, "IsWorking"),
     }, {}},
    {"IFtp", "CFtp", {
       kDestroy, kDelete,
       Virtual<int(char*, int, char*, char*)>(&IFtp::Connect, "Connect"),
       Virtual<int()>(&IFtp::Disconnect, "Disconnect"),
       Virtual<int()>(&IFtp::Isconnect, "Isconnect"),
       Virtual<int(char*, char*)>(&IFtp::UploadFile, "UploadFile"),
     }, {}},
    {"IUploadClient", "CUploadClient", {
       kDestroy, kDelete,
       Virtual<void(void (*)(void*, const char*, const char*, unsigned int), OnProgress, void*)>(
           &IUploadClient::RegisterEvent, "RegisterEvent"),
       Virtual<bool(char*, int, const char*)>(&IUploadClient::Upload, "Upload"),
     }, {}},
    {"IUploadServer", "CUploadServer", {
       kDestroy, kDelete,
       Virtual<bool(int)>(&IUploadServer::Start, "Start"),
       Virtual<bool()>(&IUploadServer::Stop, "Stop"),
       Virtual<bool(const char*)>(&IUploadServer::SetPath, "SetPath"),
     }, {}},
    {"IDownloadClient", "CDownloadClient", {
       kDestroy, kDelete,
       Virtual<void(void (*)(void*, const char*, unsigned int), OnProgress, void*)>(
           &IDownloadClient::RegisterEvent, "RegisterEvent"),
       Virtual<bool(char*, int, const char*, const char*, const char*)>(&IDownloadClient::Down, "Down"),
     }, {}},
    {"IDownloadServer", "CDownloadServer", {
       kDestroy, kDelete,
       Virtual<bool(int, int)>(&IDownloadServer::Start, "Start"),
       Virtual<bool()>(&IDownloadServer::Stop, "Stop"),
       Virtual<bool(const char*)>(&IDownloadServer::SetPath, "SetPath"),
     }, {}},
    {nullptr, "AES", {kDestroy, kDelete}, {}},
  };
  return tables;
}
// clang-format on

bool IsGlobal(const std::string& name) {
  return name == "AES";
}

std::string Mangled(const std::string& name) {
  const std::string plain = std::to_string(name.size()) + name;
  return IsGlobal(name) ? plain : "N4Tarn7Generic" + plain + "E";
}

/// What the symbol of an operation is called when a class implements it.
std::string Qualified(const std::string& className, std::string operation) {
  const std::string scope = (IsGlobal(className) ? "" : "Tarn::Generic::") + className + "::";
  if (operation[0] == '~') operation.replace(0, 1, "~" + className + "()");
  return scope + operation;
}

const ShippedLibrary& Shipped() {
  return ShippedLibrary::Get();
}

std::vector<Operation> AllOperations(const Table& table) {
  std::vector<Operation> all = table.operations;
  all.insert(all.end(), table.further.begin(), table.further.end());
  return all;
}

TEST(VirtualSlots, AreWhereTheHeadersCallThem) {
  for (const Table& table : Tables()) {
    const std::vector<Operation> operations = AllOperations(table);
    for (size_t slot = 0; slot < operations.size(); ++slot) {
      EXPECT_EQ(operations[slot].callSlot.value_or(slot), slot)
          << table.concrete << "::" << operations[slot].name;
    }
  }
}

TEST(VirtualSlots, HoldTheirOperationInTheLibraryFile) {
  for (const Table& table : Tables()) {
    SCOPED_TRACE(table.concrete);
    const std::vector<Operation> operations = AllOperations(table);
    const std::vector<const void*> slots = Shipped().VirtualTable(Mangled(table.concrete));
    EXPECT_EQ(slots.size(), operations.size());
    for (size_t slot = 0; slot < std::min(slots.size(), operations.size()); ++slot) {
      EXPECT_THAT(Shipped().NamesAt(slots[slot]),
                  Contains(Qualified(table.concrete, operations[slot].name)))
          << "in slot " << slot;
    }
  }
}

TEST(VirtualSlots, AreAsManyInAnInterfaceAsItHasOperations) {
  for (const Table& table : Tables()) {
    if (table.interface == nullptr) continue;
    EXPECT_EQ(Shipped().VirtualTable(Mangled(table.interface)).size(), table.operations.size())
        << table.interface;
  }
}

TEST(VirtualSlots, FollowTheTypeInformation) {
  for (const Table& table : Tables()) {
    const std::string mangled = Mangled(table.concrete);
    EXPECT_EQ(Shipped().TypeInformationIn(mangled), Shipped().Address("_ZTI" + mangled))
        << table.concrete;
  }
}

TEST(VirtualSlots, AreWalkedInEveryExportedTable) {
  std::vector<std::string> walked;
  for (const Table& table : Tables()) {
    walked.push_back(Mangled(table.concrete));
    if (table.interface != nullptr) walked.push_back(Mangled(table.interface));
  }
  EXPECT_THAT(Shipped().PolymorphicClasses(), UnorderedElementsAreArray(walked));
}

}  // namespace
}  // namespace Tarn::Generic
