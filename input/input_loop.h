// InputLoop: waits for a LinuxInputReader's sources, asleep until there is something to do, and takes what came.
//
//   evdev nodes ─┐  poll()              translateEvent()
//                ├───────── InputLoop ─ getLircEvent() ─ LinuxInputReader
//   LIRC socket ─┘              │
//                               └─ one InputEvent per next() ─ the application
//
// The loop. Wait, take what came, draw:
//
//   LinuxInputReader reader;
//   if (!reader.init(nullptr, nullptr, nullptr, 1919, 1079)) return;  // no source at all
//   InputLoop loop(reader);
//   LinuxInputReader::InputEvent event;
//   for (;;) {
//     loop.wait(-1);  // as long as nothing happens; or until the next frame is due
//     while (loop.next(event)) handle(event);
//     draw();
//   }
//
// It is a companion of the reader, which knows nothing of it, and it uses only what is public there. The reader's own
// readInput() waits and reads on its own terms (input/linux_input_reader.h). With a loop, call next() in its place: the
// reader keeps the pointer, the modifiers, the clicks and the remote's key as it does without, and the events are the
// same, in the same order, but for what is better left out (docs/behaviour.md compares the two, row by row):
//
//   - next() returns true only with an event: no side buttons, no auto-repeat of a button;
//   - no move comes twice;
//   - a step of a wheel is a step of a wheel (kWheelEvent), and never brings back an old event;
//   - a touch that sends BTN_TOUCH and BTN_TOOL_FINGER is one button-down, and one button-up when both are up;
//   - Shift, Control or Alt stays held while either of its two keys is;
//   - each line of the LIRC daemon counts, also if several came together, or one in two parts. (A line that arrives
//     between the loop's look at the one before it and the reader's read, microseconds later, is still read with that
//     one and does not count.) A line without its end waits for it.
//
// Invariants, for those who change something here:
//
//   - Waiting is level-triggered. What has not been read, for example because a call was interrupted, is reported again
//     by the next wait, so nothing needs to be read to its end.
//   - A drain takes at most 20 records that are not keys, up to one event, keyboard first, as the reader's does: all
//     motion of a drain becomes one move, and 20 records that give nothing end the node's share of a round. Records are
//     read 64 at a time, so some can be read ahead.
//   - Motion goes into the reader's holding slot (pendingEvent). A key behind it takes its place there, and comes
//     before anything else is read.
//   - The remote's key changes its state only in a poll that finds no line. It is made when the time for it has come,
//     by the reader's clock and in its arithmetic.
//   - One thread. No function is safe in a signal handler.
//
// Descriptors. They stay the reader's, which closes them. A source that is gone, because a read failed or its stream
// has ended, is left out from then on, also if somebody opens the FIFO again, and what it held stays down. InputSources
// (input/input_sources.h) closes it, has come up what it held, and opens it again; it asks for what is down after lost
// records, and adds further nodes. For a new reader, make a new loop. If lines come together, the loop opens a pipe,
// once, and closes it at its end; where that fails, the log has an ERROR, and of the lines only the first counts.
//
// If the application calls readInput() in between, what was read ahead comes after it, with the next next(). Do so only
// between two rounds with timeoutMs() != 0: a part of a line or record that the loop has, and a modifier key's release
// that it does not see, are wrong otherwise, and a key can be lost. source() and cause() say nothing about what the
// reader held back itself. The loop may be destroyed before or after the reader, but not used after it.
#pragma once

#include <linux/input.h>
#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"

namespace quarlo::components::input {

class InputLoop {
 public:
  // The reader's, with one kind more: kWheelEvent.
  using InputEvent = LinuxInputReader::InputEvent;

  // Where an event came from. The further nodes (input/input_sources.h) are kFurther, kFurther + 1, ...
  enum Source : std::uint8_t { kKeyboard, kMouse, kRemote, kFurther };
  static constexpr int kMostFurtherNodes = 8;
  static constexpr int kSources = kFurther + kMostFurtherNodes;  // how many there can be

  // A set of sources: bit 1 << source.
  using SourceSet = std::uint32_t;

  // ---- Waiting -----------------------------------------------------------------------------------

  // Why wait() returned. Call next() after each wait, whatever this says.
  struct Wake {
    bool input;      // there is something to read: an event, or perhaps only that a source is gone
    bool remote;     // the remote's key has something due, which next() does; it gives no event
    bool timeout;    // nothing but the application's own time ended the wait: no timer, for input can always be first
    bool ownFd;      // the application's own descriptor is readable, or has an error
    bool signal;     // a signal was handled during the wait, or poll() failed: next() asks each source
    SourceSet gone;  // the sources that next() has found to be gone, each reported once
  };

  // Allocates nothing and opens nothing. The reader may be given its sources later.
  explicit InputLoop(LinuxInputReader& reader);
  ~InputLoop();
  InputLoop(const InputLoop&) = delete;
  InputLoop& operator=(const InputLoop&) = delete;

  // Sleeps until there is input, until the remote's key has something due, for `timeoutMs` ms (any negative value: no
  // limit), until `ownFd` is readable (any descriptor of the application's: a signalfd, an eventfd that a thread writes
  // to, a socket; negative: none), until a source goes, or until a signal. A signal that was handled just before does
  // not end it: let the handler write to `ownFd`. Does not sleep while next() still has something. A clock that is set
  // meanwhile can delay what is due for the remote by the sleep that was begun, but no more. Without a source it sleeps
  // all the same.
  Wake wait(int timeoutMs, int ownFd = -1);

  // ---- Waiting elsewhere: for those with an event loop of their own ------------------------------

  // How many descriptors there can be.
  static constexpr int kMaxDescriptors = kSources;

  // Fills `fds` with what to wait for (level-triggered: poll's POLLIN is epoll's EPOLLIN), and returns how many there
  // are. A source that is gone is not among them. Look at generation() after each round.
  // REQUIRES: room for kMaxDescriptors
  int descriptors(pollfd* fds);

  // Changes whenever the descriptors do: then register them again, also if the numbers are the same.
  std::uint32_t generation();

  // The longest time to sleep from now on, in ms: -1 for no limit, 0 if next() has something now. When it is over, call
  // next(), also if no descriptor was reported.
  int timeoutMs() const;

  // Tells the loop what the wait has reported for a descriptor: poll's or epoll's bits. Others are ignored.
  void setReady(int fd, int revents);

  // For a wait that does not tell: next() then asks each source. (A FIFO that its writers have closed looks then like
  // one that nobody has opened yet, and is not found to be gone.)
  void setAllReady();

  // The sources that are gone.
  SourceSet gone() const { return state_.gone; }

  // ---- Taking what came --------------------------------------------------------------------------

  // The kind of an event that next() can return beside the reader's two: a wheel was turned. Its mouseData has the axis
  // in `action`, the steps in `button`, and the pointer's position; `clicks` is 0.
  static constexpr std::uint8_t kWheelEvent = 2;
  static constexpr std::int32_t kVertical = REL_WHEEL;     // steps > 0: up, away from the user
  static constexpr std::int32_t kHorizontal = REL_HWHEEL;  // steps > 0: to the right

  // What an event came of.
  struct Cause {
    Source source;         // where it came from
    std::uint32_t number;  // which of the source's records or lines, counted from 1: of several, the last one
    input_event record;    // of a node: that record as it was read
  };

  // Fills `event` with the next event of what came. Returns false when there is none: then draw, and wait again. The
  // event's kind is then kNoEvent. A round (all calls up to the one that returns false) is bounded: see setBound().
  bool next(InputEvent& event) { return take(event, false); }

  // The same, but also returns true for each record or line that gives no event: the event's kind is then kNoEvent. A
  // record of motion is part of its move, which comes at the end of its drain, after what gave nothing in between.
  bool nextRecord(InputEvent& event) { return take(event, true); }

  // Where the event came from, after a call that returned true.
  Source source() const { return state_.cause.source; }

  // What it came of, after such a call.
  const Cause& cause() const { return state_.cause; }

  // The remote's line that it came of, with its end, if source() is kRemote. Valid until the next call.
  const char* line() const { return state_.lineText; }

  // A round takes of each source about `events` events (records and lines that gave nothing are counted, too), and
  // `ms` ms from its 16th one on, where the clock is read at each 16th. So a source that floods keeps neither the
  // others nor the drawing waiting; if handling an event takes long, lower `events`. What is left is there at once in
  // the next round. 0 events: without a bound.
  void setBound(int events, int ms);
  static constexpr int kDefaultBoundEvents = 128;  // as many records as the kernel keeps of a mouse
  static constexpr int kDefaultBoundMs = 4;        // a quarter of a frame at 60 Hz

 private:
  friend class InputSources;

  using Modifier = LinuxInputReader::Modifier;

  static constexpr int kReadAhead = 64;  // records

  // Whether a read may find something. A FIFO that nobody has opened for writing yet is not named by a wait; if it is
  // read all the same, that looks like the end of one that its writer has closed.
  enum class MayRead : std::uint8_t { kNo, kIsAsked, kIsNamed };

  // What is left of what a source has sent, until more of it comes.
  struct Rest {
    MayRead mayRead;
    std::size_t bytes;                       // the beginning of a record or line whose rest has not come yet
    bool isCut;                              // the rest of a line that was too long is still to come
    std::uint32_t down[(KEY_MAX + 1) / 32];  // bit by key code: the keys and buttons that are down
  };

  // What is waited for, and what one source has had of a round. (All of this starts as zeroes.)
  struct Channel {
    Source source;
    SourceSet bit;
    int readerFd;   // the reader's descriptor, as it was found last
    int fd;         // the same; of a source that is gone, -1 - errno, and -1 at the end of a stream
    int taken;      // events and lines
    timeval start;  // when the 16th of them was taken
    Rest rest;

    bool isDown(unsigned code) const { return (rest.down[code / 32] >> (code % 32) & 1) != 0; }
  };

  // The sources, each at its own number.
  struct Channels {
    // Behind the last one.
    struct End {};

    // Where a loop over them is.
    struct Iterator {
      Channel* const* channel;  // the one that it is at, or null

      // That source.
      Channel* operator*() const { return *channel; }

      // Goes to the next one.
      void operator++() { ++channel; }

      // Whether there is one.
      bool operator!=(End /*end*/) const { return *channel != nullptr; }
    };

    Channel* all[kSources + 1];  // null: the end

    Iterator begin() const { return {all}; }
    static End end() { return {}; }
  };

  // A source of records, and those of them that were read ahead.
  struct Node : Channel {
    int begin;
    int end;
    std::uint32_t before;  // how many records came before them
    input_event records[kReadAhead];

    void setDown(unsigned code, bool isDown);
  };

  enum class LastLine : std::uint8_t { kNone, kNothing, kKey };

  // All that the loop remembers. It starts as zeroes; what is used most comes first.
  struct State {
    bool roundIsOpen;
    bool everything;    // the call wants what gives no event, too
    bool isInDrain;     // nextRecord() has returned in the middle of a drain of held.source
    LastLine lastLine;  // what the last line of this round gave
    bool hasPipe;       // which hands a line to the reader
    SourceSet ready;    // may have something, read ahead or not
    SourceSet over;     // have had their share of this round
    SourceSet lost;     // the nodes of which the kernel has dropped records
    SourceSet gone;
    SourceSet reported;  // those of them that a wait has reported
    std::uint32_t generation;
    int budget;  // what the drain that goes on may still take
    int pipe[2];
    std::uint32_t lines;  // how many have been taken
    Channels channels;
    Channel remote;
    Cause cause;
    Cause held;                        // of what is in the holding slot
    char lineText[kLircReadSize + 1];  // of the line that is not complete, or of the last one; what is longer is cut
    Node keyboard;
    Node mouse;
  };

  static std::int32_t msSince(const timeval& then);

  void findSources();
  void report(Channel& channel, int error);
  void checkError(Channel& channel);
  void makeReady(Channel& channel, MayRead mayRead);
  bool hasSomething() const;
  bool isWanted(SourceSet source) const;
  std::int32_t remoteLimitMs() const;

  bool take(InputEvent& event, bool everything);
  void beginRound();
  bool takeReady(InputEvent& event);
  [[gnu::weak]] bool drainFurther(InputEvent& event);  // input_sources.cc: without it there is no further node
  void count(Channel& channel);
  bool takeHeld(InputEvent& event);

  bool drain(Node& node, InputEvent& event);
  void takeKey(Node& node, input_event& record, InputEvent& event);
  static void remember(Cause& cause, const Node& node, const input_event& record);
  bool fill(Node& node);
  void translate(Node& node, input_event& record, InputEvent& out);
  void keepTwin(unsigned released, InputEvent& out);
  void writeWheel(const input_event& record, InputEvent& out) const;

  bool takeLine(InputEvent& event);
  ssize_t look(char* text, std::size_t size);
  bool append(std::size_t size, bool hasEnd);
  bool openPipe();
  void handOver(InputEvent& event);
  void finishLine(bool gaveKey);
  void pollRemote(InputEvent& event);

  LinuxInputReader& reader_;
  int boundEvents_ = kDefaultBoundEvents;
  int boundMs_ = kDefaultBoundMs;
  State state_ = {};
};

}  // namespace quarlo::components::input
