#include "tests/support/lircd.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

namespace quarlo::test {
namespace {

const std::string kRoot = QUARLO_LIRC_ROOT;

// The directory below usr/lib that has the packages' libraries: it is named after their architecture.
std::string librariesFolder() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(kRoot + "/usr/lib", error)) {
    if (access((entry.path() / "lirc/plugins").c_str(), F_OK) == 0) return entry.path();
  }
  return "";
}

// A remote of the NEC protocol, which has a short frame for as long as a button is held, and one of RC-5.
constexpr char kInfraredRemotes[] = R"(begin remote
  name           myremote
  bits           16
  flags          SPACE_ENC|CONST_LENGTH
  eps            30
  aeps           100
  header         9000 4500
  one            560 1690
  zero           560 560
  ptrail         560
  repeat         9000 2250
  pre_data_bits  16
  pre_data       0x20df
  gap            108000
  begin codes
    KEY_UP       0x807f
    KEY_1        0x40bf
    KEY_SUBTITLE 0xc03f
  end codes
end remote

begin remote
  name           other
  bits           13
  flags          RC5|CONST_LENGTH
  eps            30
  aeps           100
  one            889 889
  zero           889 889
  plead          889
  gap            113778
  toggle_bit_mask 0x800
  begin codes
    KEY_UP       0x1010
    KEY_RIGHT    0x1011
  end codes
end remote
)";

// A remote that the kernel decodes: its lines' codes are evdev's type, code and value.
constexpr char kNodeRemote[] = R"(begin remote
  name           devinput
  bits           16
  eps            30
  aeps           100
  pre_data_bits  16
  pre_data       0x0001
  post_data_bits 32
  post_data      0x00000001
  gap            132799
  toggle_bit     0
  driver         devinput
  begin codes
    KEY_OK       0x0160
    KEY_UP       0x0067
  end codes
end remote
)";

pid_t start(const std::vector<std::string>& command) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const std::string libraries = librariesFolder();
  const std::string triplet = std::filesystem::path(libraries).filename();
  setenv("LD_LIBRARY_PATH", (libraries + ":" + kRoot + "/lib/" + triplet).c_str(), 1);
  execv(arguments[0], arguments.data());
  _exit(127);
}

// A UDP port that nothing uses.
int freePort() {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  socklen_t size = sizeof address;
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), size), 0);
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
  close(fd);
  return ntohs(address.sin_port);
}

std::string contents(const std::string& path) {
  std::ifstream stream(path);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

}  // namespace

bool Lircd::isAvailable() { return access((kRoot + "/usr/sbin/lircd").c_str(), X_OK) == 0; }

Lircd::Lircd(std::string folder) : folder_(std::move(folder)) {}

Lircd::~Lircd() { stop(); }

bool Lircd::start() { return start("udp", std::to_string(freePort()), kInfraredRemotes); }

bool Lircd::startOnReceiver(const std::string& path) { return start("default", path, kInfraredRemotes); }

bool Lircd::startOnNode(const std::string& path) { return start("devinput", path, kNodeRemote); }

bool Lircd::start(const std::string& driver, const std::string& device, const char* configuration) {
  std::ofstream(file("lircd.conf")) << configuration;
  pid_ = test::start({kRoot + "/usr/sbin/lircd", "--options-file=/dev/null", "--nodaemon", "--allow-simulate",
                      "--driver=" + driver, "--device=" + device, "--immediate-init",
                      "--plugindir=" + librariesFolder() + "/lirc/plugins", "--output=" + socketPath(),
                      "--pidfile=" + file("lircd.pid"), "--logfile=" + file("lircd.log"), file("lircd.conf")});
  // The socket's file is there before it listens, so only a connection tells. It takes some 20 ms.
  constexpr int kTries = 1000;
  constexpr int kPauseMs = 10;
  for (int i = 0; i < kTries && !accepts(); ++i) {
    if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
      pid_ = -1;
      break;
    }
    poll(nullptr, 0, kPauseMs);
  }
  if (accepts()) return true;
  ADD_FAILURE() << "lircd does not listen on " << socketPath() << "; its log:\n" << contents(file("lircd.log"));
  return false;
}

void Lircd::stop() {
  if (pid_ == -1) return;
  // The daemon looks whether it was told to end, and then sleeps: a signal that comes in between is forgotten.
  constexpr int kPauseMs = 10;
  do {
    kill(pid_, SIGTERM);
    poll(nullptr, 0, kPauseMs);
  } while (waitpid(pid_, nullptr, WNOHANG) == 0);
  pid_ = -1;
}

void Lircd::reload() { kill(pid_, SIGHUP); }

bool Lircd::simulate(const std::string& button, const std::string& repeatCount) {
  return simulateLine("0000000000f40bf0 " + repeatCount + " " + button + " myremote");
}

bool Lircd::simulateLine(const std::string& line) {
  const int fd = connectToDaemon();
  const std::string command = "SIMULATE " + line + "\n";
  EXPECT_EQ(write(fd, command.data(), command.size()), static_cast<ssize_t>(command.size()));
  // The line itself comes before the reply, to this client as to all others.
  std::string reply;
  char byte;
  while (reply.find("\nEND\n") == std::string::npos && read(fd, &byte, 1) == 1) reply += byte;
  close(fd);
  return reply.find("\nSUCCESS\n") != std::string::npos;
}

// Returns a descriptor, or -1.
int Lircd::connectToDaemon() const {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socketPath().c_str(), sizeof address.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

bool Lircd::accepts() const {
  const int fd = connectToDaemon();
  if (fd != -1) close(fd);
  return fd != -1;
}

}  // namespace quarlo::test
