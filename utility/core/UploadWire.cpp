// The upload protocol, without sockets and files: one upload per connection.
#include "utility/core/UploadWire.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Tarn::Core {

namespace {

UploadStep TakeHeader(UploadState& state, char* header, std::string_view& delivery) {
  const size_t taken = std::min(kUploadHeaderBytes - state.received, delivery.size());
  if (taken > 0) std::memcpy(header + state.received, delivery.data(), taken);
  state.received += static_cast<uint32_t>(taken);
  delivery.remove_prefix(taken);
  if (state.received < kUploadHeaderBytes) return UploadStep::kMore;
  const uint32_t total = ParseUploadHeader(header).totalLength;
  if (total < kUploadHeaderBytes) return UploadStep::kReject;
  state = {UploadPhase::kData, 0, total - static_cast<uint32_t>(kUploadHeaderBytes)};
  return UploadStep::kCreate;
}

UploadStep TakeData(UploadState& state, std::string_view& delivery, std::string_view& part) {
  if (delivery.empty()) return UploadStep::kMore;
  part = delivery;
  delivery = {};
  // Saturated, not wrapped: no announced length can be met again once it was passed.
  const uint64_t sum = uint64_t{state.received} + part.size();
  state.received = static_cast<uint32_t>(std::min<uint64_t>(sum, UINT32_MAX));
  if (state.received != state.expected) return UploadStep::kStore;
  state.phase = UploadPhase::kDone;
  return UploadStep::kStoreAndFinish;
}

}  // namespace

UploadHeaderBytes BuildUploadHeader(const UploadHeader& header) {
  UploadHeaderBytes bytes{};
  std::memcpy(bytes.data(), &header.totalLength, sizeof header.totalLength);
  header.md5.copy(bytes.data() + kUploadMd5Offset, kTransferMd5Bytes);
  header.ext.copy(bytes.data() + kUploadExtOffset, kUploadExtBytes);
  return bytes;
}

UploadHeader ParseUploadHeader(const char* bytes) {
  UploadHeader header{};
  std::memcpy(&header.totalLength, bytes, sizeof header.totalLength);
  header.md5 = {bytes + kUploadMd5Offset, kTransferMd5Bytes};
  header.ext = UpToNul({bytes + kUploadExtOffset, kUploadExtBytes});
  return header;
}

std::string_view UploadExtension(std::string_view path) {
  const size_t dot = path.rfind('.');
  return dot == std::string_view::npos ? std::string_view{} : path.substr(dot);
}

UploadStep NextUploadStep(UploadState& state, char* header, std::string_view& delivery,
                          std::string_view& part) {
  switch (state.phase) {
    case UploadPhase::kHeader:
      return TakeHeader(state, header, delivery);
    case UploadPhase::kData:
      return TakeData(state, delivery, part);
    case UploadPhase::kDone:
      break;
  }
  return UploadStep::kMore;
}

std::string UploadName(const UploadTime& time, int number, std::string_view ext) {
  char text[128];
  std::snprintf(text, sizeof text, "%4d%02d%02d%02d%02d%02d%03d%03d", time.year, time.month,
                time.day, time.hour, time.minute, time.second, time.milliseconds, number);
  std::string name(text);
  name.append(ext);
  return name;
}

bool IsUploadExtension(std::string_view ext) {
  return ext.find('/') == std::string_view::npos;
}

int UploadNumber(uint64_t index) {
  // Steele, Lea and Flood, "Fast splittable pseudorandom number generators" (2014): mix of
  // SplitMix64.
  uint64_t mixed = (index + 1) * 0x9E3779B97F4A7C15u;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
  return static_cast<int>((mixed ^ (mixed >> 31)) % 1000);
}

}  // namespace Tarn::Core
