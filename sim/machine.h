// A simulated Linux machine to test input code on, without hardware and without waiting.
//
//   your loop ─ LinuxInputReader ─ open, read, ioctl, select, ... ─┬─ sim::Machine, while one exists
//                                                                  └─ libc, otherwise
//
// Link quarlo::sim: the linker's --wrap then sends those calls here. While a Machine exists, it owns everything below
// /dev/input, the paths of its nodes, Unix sockets, what pipe2(), eventfd(), timerfd_create() and epoll_create1() make,
// the clocks, the calls that wait or sleep (select, poll, ppoll, epoll_wait, epoll_pwait, nanosleep, clock_nanosleep,
// usleep), and the LIRC_... environment variables. Every other path, descriptor and call (pipe, fcntl, pselect, sleep,
// fopen, ...) goes on to libc. There is at most one Machine at a time, in one thread.
//
//   sim::Machine machine;
//   sim::Node& keyboard = machine.addNode("/dev/input/event0", sim::Device::keyboard());
//   LinuxInputReader reader;
//   reader.init(nullptr, nullptr, nullptr, 1919, 1079);
//   machine.after(50ms, [&] { keyboard.press(KEY_A); });
//   reader.readInput(event, 1000);  // returns at once, 50 ms later on the machine's clock
//
// Time is virtual. It stands still while code runs. It moves in a call that waits, until its timeout or until what it
// waits for has come, whichever is earlier; in a sleep; in a read(), recv() or write() that blocks; and by advance(). A
// wait or sleep that does not wait takes 10 us, so that a loop that only polls makes progress, too; setCallTime() sets
// other times. Time is in whole microseconds, and what is given in nanoseconds is rounded up. It starts at 1,000,000 s.
// Each Machine starts on a whole second, at least 10 s after the last one ended, since some code remembers times for as
// long as the process lives.
//
// gettimeofday(), CLOCK_REALTIME, its coarse sister and CLOCK_TAI are the clock on the wall, which jumpClock() sets,
// and which timers and sleeps until a time on it follow. CLOCK_MONOTONIC, its sisters and CLOCK_BOOTTIME go on as time
// passes. Other clocks, such as those of processor time, are libc's.
//
// Descriptors of libc's (a pipe(), a FIFO, a signalfd()) can be waited for beside the machine's. They are asked each
// time that something happens on the machine; nothing waits for them in real time. A poll() that has a timeout of 0 and
// none of the machine's descriptors is libc's alone. A signal that is pending, and that the mask of ppoll() or
// epoll_pwait() lets through, interrupts them.
//
// What is not simulated (recv() with MSG_WAITALL, EPOLLEXCLUSIVE, TFD_TIMER_CANCEL_ON_SET, an epoll that watches
// another, writing to a node or to the daemon) ends the process with a message, instead of a wrong answer.
//
// What libstdc++ calls reaches the machine only if it is linked statically (-static-libstdc++): without that,
// std::chrono::steady_clock and system_clock give real time, and so does what waits by them.
#pragma once

#include <linux/input.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace quarlo::sim {

using std::chrono::microseconds;

class Kernel;
struct NodeState;
struct DaemonState;

// What an evdev node says about itself. Only the first two are needed.
struct Device {
  std::string name;                    // as EVIOCGNAME gives it
  std::map<int, std::set<int>> codes;  // the event codes it can send, by event type (EV_KEY, ...); EV_SYN is implied

  input_id id{};                        // bus, vendor, product and version, as EVIOCGID gives them
  std::set<int> properties{};           // INPUT_PROP_..., as EVIOCGPROP gives them
  std::map<int, input_absinfo> axes{};  // by axis, what EVIOCGABS gives; of one that is left out, zeroes
  std::optional<std::string> phys{};    // where it is plugged in, as EVIOCGPHYS gives it; none: ENOENT
  std::optional<std::string> uniq{};    // its serial number, as EVIOCGUNIQ gives it; none: ENOENT

  // How long a key is held until it repeats, and between repeats, of a device that has EV_REP: what EVIOCGREP gives.
  // With 0 for either, it does not repeat.
  std::chrono::milliseconds repeatDelay{250};
  std::chrono::milliseconds repeatPeriod{33};

  // Typical devices. A keyboard has the keys of a full PC keyboard with LEDs and auto-repeat; a mouse has three
  // buttons, two more at the side and a wheel; a touchscreen has BTN_TOUCH and absolute axes.
  static Device keyboard(std::string name = "Simulated Keyboard");
  static Device mouse(std::string name = "Simulated Mouse");
  static Device touchscreen(std::string name = "Simulated Touchscreen");
};

// An evdev node below /dev/input, or at any other path.
class Node {
 public:
  // Reports one value now, as a driver does. As in the kernel, codes that the device does not have, repeated states and
  // zero steps are dropped, an axis with fuzz is smoothed, and a reader sees nothing before the SYN_REPORT. Of a device
  // that has ABS_MT_SLOT, this chooses the slot that the multi-touch axes then are of; its record comes with the next
  // of them. EV_REP sets the delay or period, in ms. A held key of a device that has EV_REP repeats by itself, until
  // any key is released.
  //
  // What is down, lit or on is so at once, whether the node is open or not. EVIOCGKEY, EVIOCGLED, EVIOCGSND and
  // EVIOCGSW tell it; as in the kernel, they drop the records of their type that are still queued for the descriptor.
  void report(int type, int code, int value);

  // The usual reports, each with its SYN_REPORT.
  void press(int code);
  void release(int code);
  void repeat(int code);
  void move(int dx, int dy);

  // Puts exactly this record into the buffer of every reader, whether a kernel would have sent it or not. It changes
  // nothing of what is down, lit or on.
  void inject(int type, int code, int value);

  // What is down, lit or on from now on, as EVIOCGKEY and the others tell it. No record says so.
  void setState(int type, int code, bool isOn);

  // Calls `take` with each record that is read: which one it is of those that came into the descriptor's buffer,
  // counted from 1. So what is missing was lost. 0: a SYN_DROPPED, which the buffer puts in the place of what it loses.
  void onRead(std::function<void(std::uint64_t)> take);

  // The device is gone: its path no longer opens, its descriptors give ENODEV, and what was queued is lost.
  void unplug();

  // Another process grabs the node, or releases it.
  void setGrabbedElsewhere(bool grabbed);

  // Whether some process, this one included, has grabbed the node.
  bool isGrabbed() const;

  // Makes open() of this node, or an ioctl() on it, fail with this errno until it is set to 0. `request` is EVIOCGRAB,
  // EVIOCGVERSION, EVIOCGID, EVIOCGREP, EVIOCSCLOCKID, EVIOCGABS(axis), EVIOCGNAME(0), EVIOCGPHYS(0), EVIOCGUNIQ(0),
  // EVIOCGPROP(0), EVIOCGBIT(type, 0), EVIOCGKEY(0), EVIOCGLED(0), EVIOCGSND(0) or EVIOCGSW(0).
  void setOpenError(int error);
  void setIoctlError(unsigned request, int error);

  // Cuts the answers to EVIOCGKEY, EVIOCGLED, EVIOCGSND and EVIOCGSW after this many bytes, as a kernel does that knows
  // fewer codes.
  void cutStates(std::size_t bytes);

 private:
  friend class Machine;
  explicit Node(std::shared_ptr<NodeState> state);
  std::shared_ptr<NodeState> state_;
};

// A LIRC daemon that listens on a Unix socket. Like the real one, it drops a client that has left too much unread (some
// 280 lines).
class LircDaemon {
 public:
  // Sends the line of a button to every client: "0000000000f40bf0 <repeat, hexadecimal> <button> myremote\n".
  void send(const std::string& button, unsigned repeat = 0);

  // Sends any bytes to every client.
  void sendText(const std::string& text);

  // Closes the connections: clients read what is still queued, then end of stream.
  void hangUp();

  // Whether a client is connected: one that the daemon has not dropped, and that has not closed its end.
  bool hasClients() const;

  // Ends the daemon. As with a real daemon, its socket's file stays: connect() gives ECONNREFUSED.
  void stop();

  // Removes its socket's file, as whatever keeps /run in order: connect() gives ENOENT.
  void removeSocket();

 private:
  friend class Machine;
  explicit LircDaemon(std::shared_ptr<DaemonState> state);
  std::shared_ptr<DaemonState> state_;
};

// The calls that reach the machine.
enum class Call {
  kOpen,
  kClose,
  kFstat,
  kRead,
  kRecv,
  kWrite,
  kPipe2,
  kIoctl,
  kSelect,
  kPoll,
  kPpoll,
  kEpollCreate1,
  kEpollCtl,
  kEpollWait,  // epoll_pwait(), too
  kEventfd,
  kTimerfdCreate,
  kTimerfdSettime,
  kTimerfdGettime,
  kNanosleep,
  kClockNanosleep,
  kUsleep,
  kSocket,
  kConnect,
  kGettimeofday,
  kClockGettime,
  kGetenv
};

// While one exists, all calls go to libc, as without a machine: for what has to see the real clock, or to really sleep.
class Outside {
 public:
  Outside();
  ~Outside();
  Outside(const Outside&) = delete;
  Outside& operator=(const Outside&) = delete;
};

class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // REQUIRES: no node at `path`, or an unplugged one. References stay valid for the machine's life.
  Node& addNode(const std::string& path, Device device);

  // Makes a symbolic link to a node, as udev makes them below /dev/input/by-id.
  void addLink(const std::string& path, const std::string& target);

  // REQUIRES: no running daemon at `path`.
  LircDaemon& addLircDaemon(const std::string& path = "/var/run/lirc/lircd");

  // LIRC_REPEAT_TIMEOUT or LIRC_RELEASE_TIMEOUT as getenv() gives it; neither is set at first.
  void setEnvironment(const std::string& name, const std::string& value);

  // The clock, as gettimeofday() gives it: since 1970.
  microseconds now() const;

  // Lets time pass, and runs what is scheduled in it.
  void advance(microseconds time);

  // Sets the clock forward or back, as an administrator would. What is scheduled still comes after the same delay.
  void jumpClock(microseconds by);

  // Schedules something to happen after `delay`. What is scheduled for the same time happens in the order of
  // scheduling.
  void after(microseconds delay, std::function<void()> happening);

  // How much time each call takes, before it does its work; of none, also a wait that does not wait takes none. Without
  // this, only such a wait takes time: 10 us. Where calls take none, a loop that only polls never ends.
  void setCallTime(microseconds time);

  // Schedules a signal that interrupts the call that waits then (EINTR). It has no effect if none is waiting.
  void signalAfter(microseconds delay);

  // Whether something is still scheduled, other than the auto-repeat of a key that is held.
  bool hasScheduled() const;

  // How long it takes until something that is scheduled happens, that auto-repeat included; none: nothing is.
  std::optional<microseconds> untilNext() const;

  // Whether an open descriptor has something to read: records of a node, or text of a daemon. An error or the end of a
  // stream does not count.
  bool hasUnread() const;

  // Sets a function that is called with each step of time in a call that waits, before the step: to pace a simulation
  // by the wall clock. The calls that it makes go to libc.
  void onWait(std::function<void(microseconds)> pace);

  // Makes the count-th such call from now (1: the next one) fail with this errno; getenv() then returns null. A failed
  // close() still closes, as on Linux.
  void fail(Call call, int count, int error);

  // Makes the count-th read() from now return just the first `bytes` bytes of what there is. The next read() of a
  // socket gets the rest; that of a node, which has only whole records, gets the record again. 0 bytes are returned at
  // once. With kRecv, the same of recv().
  void truncateRead(int count, std::size_t bytes, Call call = Call::kRead);

  // How often a call has been made since the machine started.
  int count(Call call) const;

  // The calls since the last takeTrace(), one line each, such as
  //   open("/dev/input/event10", O_RDONLY) = -1 ENOENT
  //   ioctl(100, EVIOCGBIT(EV_REL, 2)) = 2
  //   select(102, [100 101], 0.500000) = 1 [101]
  //   read(101, 1 record) = 1 record
  std::vector<std::string> takeTrace();

  // Long simulations turn the trace off. It is on at first.
  void setTracing(bool on);

  // Descriptors are numbered from 100, the lowest free number first; another start takes effect with the next
  // descriptor. If a descriptor is used after its close(), the trace shows EBADF, unless libc has opened a file with
  // that number.
  void setFirstDescriptor(int number);

  // How many descriptors are open on the machine.
  int openDescriptors() const;

 private:
  std::unique_ptr<Kernel> kernel_;
  std::vector<std::unique_ptr<Node>> nodes_;
  std::vector<std::unique_ptr<LircDaemon>> daemons_;
};

}  // namespace quarlo::sim
