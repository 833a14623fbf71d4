#include "tests/torture/faults.h"

#include <linux/input.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>

namespace quarlo::test::torture {
namespace {

const std::map<std::string, Call> kCalls = {{"open", Call::kOpen},
                                            {"close", Call::kClose},
                                            {"fstat", Call::kFstat},
                                            {"read", Call::kRead},
                                            {"recv", Call::kRecv},
                                            {"write", Call::kWrite},
                                            {"pipe2", Call::kPipe2},
                                            {"ioctl", Call::kIoctl},
                                            {"select", Call::kSelect},
                                            {"poll", Call::kPoll},
                                            {"socket", Call::kSocket},
                                            {"connect", Call::kConnect},
                                            {"gettimeofday", Call::kGettimeofday},
                                            {"clock_gettime", Call::kClockGettime},
                                            {"getenv", Call::kGetenv}};

std::string howItGoes(const Fault& fault) {
  if (fault.bytes) return std::to_string(*fault.bytes) + " bytes";
  return fault.error == 0 ? "null" : strerrorname_np(fault.error);
}

}  // namespace

std::string nameOf(Call call) {
  return std::find_if(kCalls.begin(), kCalls.end(), [&](const auto& entry) { return entry.second == call; })->first;
}

std::string nodePath(int number) { return "/dev/input/event" + std::to_string(number); }

Calls callsOf(const std::vector<std::string>& trace) {
  Calls calls;
  std::map<Call, int> counts;
  for (const std::string& line : trace) {
    const std::size_t nameEnd = line.find('(');
    const std::size_t argumentEnd = line.find_first_of(",)", nameEnd);
    const Call call = kCalls.at(line.substr(0, nameEnd));
    const std::string result = line.substr(line.rfind(" = ") + 3);
    calls.push_back({call, ++counts[call], line, line.substr(nameEnd + 1, argumentEnd - nameEnd - 1), result,
                     result.rfind("-1", 0) != 0});
  }
  return calls;
}

bool isReadOf(const TracedCall& call, int fd) {
  return call.call == Call::kRead && call.firstArgument == std::to_string(fd);
}

std::size_t readBefore(const Calls& calls, std::size_t index, int fd) {
  return static_cast<std::size_t>(
      std::count_if(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(index),
                    [fd](const TracedCall& call) { return isReadOf(call, fd) && call.succeeded; }));
}

int nodeOf(const Calls& calls, std::size_t index) {
  while (calls[index].call != Call::kOpen) --index;
  const std::string path = "/dev/input/event";
  return std::stoi(calls[index].line.substr(calls[index].line.find(path) + path.size()));
}

std::string kindOf(const Fault& fault) { return nameOf(fault.call) + " " + howItGoes(fault); }

std::string describe(const std::string& life, const TracedCall& call, const Fault& fault) {
  return life + ": " + nameOf(call.call) + " number " + std::to_string(call.count) + ", " + call.line + ", " +
         (fault.error == 0 ? "gives " : "fails with ") + howItGoes(fault) +
         (fault.times == 1 ? " once" : " from then on, " + std::to_string(fault.times) + " times");
}

std::vector<int> errorsOf(Call call) {
  switch (call) {
    case Call::kOpen:
      return {EACCES, EBUSY,      EDQUOT,       EEXIST, EFAULT, EFBIG,   EINTR,  EINVAL, EISDIR,
              ELOOP,  EMFILE,     ENAMETOOLONG, ENFILE, ENODEV, ENOENT,  ENOMEM, ENOSPC, ENOTDIR,
              ENXIO,  EOPNOTSUPP, EOVERFLOW,    EPERM,  EROFS,  ETXTBSY, EAGAIN};
    case Call::kClose: return {EBADF, EINTR, EIO, ENOSPC, EDQUOT};
    case Call::kFstat: return {EBADF, EFAULT, ENOMEM, EOVERFLOW};
    case Call::kRead: return {EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, EISDIR, ENODEV, ECONNRESET, ENOTCONN};
    case Call::kRecv:
      return {EAGAIN, EBADF, ECONNREFUSED, ECONNRESET, EFAULT, EINTR, EINVAL, ENOMEM, ENOTCONN, ENOTSOCK};
    case Call::kWrite: return {EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, ENOSPC, EPERM, EPIPE};
    case Call::kPipe2: return {EFAULT, EINVAL, EMFILE, ENFILE, ENOPKG};
    case Call::kIoctl: return {EBADF, EFAULT, EINVAL, ENOTTY, ENODEV, EINTR, EBUSY};
    case Call::kSelect: return {EBADF, EINTR, EINVAL, ENOMEM};
    case Call::kPoll: return {EFAULT, EINTR, EINVAL, ENOMEM};
    case Call::kSocket: return {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT};
    case Call::kConnect:
      return {EACCES,       EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN, EALREADY,   EBADF,
              ECONNREFUSED, EFAULT,     EINPROGRESS,   EINTR,        EINVAL, EISCONN,    ENETUNREACH,
              ENOENT,       ENOMEM,     ENOTSOCK,      EPERM,        EPIPE,  EPROTOTYPE, ETIMEDOUT};
    case Call::kGettimeofday: return {EFAULT};
    case Call::kClockGettime: return {EFAULT, EINVAL, ENODEV, ENOTSUP};
    case Call::kGetenv: return {0};
    // The reader makes no other calls.
    default: return {};
  }
}

std::vector<Fault> eachError(const TracedCall& call) {
  std::vector<Fault> result;
  for (const int error : errorsOf(call.call)) result.push_back({call.call, call.count, error, {}});
  return result;
}

std::vector<Fault> anErrorForGood(const TracedCall& call) {
  if (call.call == Call::kSelect || call.call == Call::kRead || call.call == Call::kGettimeofday) return {};
  return {{call.call, call.count, errorsOf(call.call).front(), {}, 100}};
}

std::vector<Fault> twoErrors(const TracedCall& call) {
  if (call.call == Call::kSelect) return {{call.call, call.count, EINTR, {}, 2}};
  if (call.call == Call::kRead) return {{call.call, call.count, EIO, {}, 2}};
  return {};
}

std::vector<Fault> anEmptyRead(const TracedCall& call) {
  if (call.call != Call::kRead && call.call != Call::kRecv) return {};
  return {{call.call, call.count, 0, 0}};
}

std::vector<Fault> partsOfARecord(const TracedCall& call) {
  if (call.call != Call::kRead) return {};
  std::vector<Fault> result;
  for (const std::size_t bytes : {std::size_t{1}, offsetof(input_event, type), offsetof(input_event, code),
                                  offsetof(input_event, value), sizeof(input_event) - 1}) {
    result.push_back({call.call, call.count, 0, bytes});
  }
  return result;
}

std::vector<Fault> partsOfALine(const TracedCall& call) {
  if ((call.call != Call::kRead && call.call != Call::kRecv) || !call.succeeded) return {};
  std::vector<Fault> result;
  const std::size_t length = std::stoul(call.result);
  for (std::size_t bytes = 1; bytes < length; ++bytes) result.push_back({call.call, call.count, 0, bytes});
  return result;
}

}  // namespace quarlo::test::torture
