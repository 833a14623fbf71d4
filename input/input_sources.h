// InputSources: keeps an InputLoop's sources usable for as long as the application runs.
//
// An InputLoop takes what its sources send. What they do not send is this class's work: it lets no key stay down that
// is up, opens what has gone, adds further nodes, and grabs nodes. It makes nothing happen behind the application's
// back: all is done in attend(), which is called before each wait, and in the functions that say so.
//
//   LinuxInputReader reader;
//   reader.init(mouse, keyboard, lircSocket, 1919, 1079);
//   InputLoop loop(reader);
//   InputSources sources(loop);
//   sources.keepOpen(InputLoop::kKeyboard, keyboard, 1000);  // if it goes, look for it each second
//   LinuxInputReader::InputEvent event;
//   for (;;) {
//     loop.wait(sources.attend(-1));
//     while (loop.next(event)) handle(event);
//     draw();
//   }
//
// When a source has gone, InputSources closes its descriptor and sets the reader's field to -1. What it held comes up:
// next() gives a key-up for each key and a button-up for each button that was down, and the modifiers become what is
// down on the other nodes. Of the remote, which has no key-ups, the held key is forgotten. The pointer, Num Lock and
// the clicks go on.
//
// When the kernel's queue of a node has overflowed, because nobody read it in time, the kernel drops what was in it and
// leaves SYN_DROPPED in its place (Linux: Documentation/input/event-codes.rst). What it still gives is taken first, in
// its order. Then the node is asked which of its keys and buttons are down (EVIOCGKEY), and next() gives the difference
// to what was given: first what has come up, then what has gone down. Motion that was dropped is lost, and so is a tap
// that fell between the last read and the question, some microseconds later: the kernel takes the records of keys from
// the queue when it answers.
//
// What is made up in this way are records like all others (EV_KEY, with no time, which tells them from what was read).
// They go through the reader, so clicks and modifiers count, and InputLoop's cause() counts them, too.
//
// With further nodes, the sources are asked in this order: keyboard, further nodes as they have joined, mouse, remote.
//
// An InputLoop must not be used after its InputSources or one of its further nodes is gone.
#pragma once

#include <sys/time.h>
#include <unistd.h>

#include <cstdint>

#include "input/input_loop.h"
#include "input/linux_input_reader.h"

namespace quarlo::components::input {

class InputSources {
 public:
  using Source = InputLoop::Source;
  using SourceSet = InputLoop::SourceSet;

  // A further node: its queue, about 1.2 KB on a 32-bit target and 1.7 KB on a 64-bit one. It must stay where it is,
  // and closes its descriptor at its end.
  class FurtherNode {
   public:
    FurtherNode() { node_.readerFd = node_.fd = -1; }
    ~FurtherNode() {
      if (node_.readerFd >= 0) close(node_.readerFd);
    }
    FurtherNode(const FurtherNode&) = delete;
    FurtherNode& operator=(const FurtherNode&) = delete;

    // Which source it is, once it has joined: kFurther, kFurther + 1, ...
    Source source() const { return node_.source; }

   private:
    friend class InputSources;

    InputLoop::Node node_ = {};
  };

  // Does nothing until it is called.
  explicit InputSources(InputLoop& loop) : loop_(loop), reader_(loop.reader_) {}
  InputSources(const InputSources&) = delete;
  InputSources& operator=(const InputSources&) = delete;

  // ---- In each round -----------------------------------------------------------------------------

  // Does what is due: closes sources that have gone, asks nodes that lost records, opens what keepOpen() names, and
  // takes and gives back grabs. Call it before each wait (if another event loop waits, before it looks at
  // InputLoop::generation() and timeoutMs()). Returns how long to wait, in ms: `timeoutMs`, or less if a source is to
  // be opened by then, or 0 if one was closed now, since the next call opens it again; -1: no limit.
  // REQUIRES: next() has returned false since the last wait
  int attend(int timeoutMs);

  // The nodes of which the last attend() found that records were lost. One that cannot say what is down (a FIFO) stays
  // as it was.
  SourceSet lost() const { return lost_; }

  // The sources that the last attend() has opened.
  SourceSet opened() const { return opened_; }

  // ---- Opening -----------------------------------------------------------------------------------

  // Opens a source that is not open: an evdev node, or the LIRC daemon's socket. A null path searches for a keyboard or
  // mouse as the reader's init() does; that grabs every node for a moment, and what is typed then is lost. Returns
  // false, with errno as of open(2) or connect(2), or
  //   EBUSY   it is open, or it has gone and attend() has not closed it yet
  //   EEXIST  the node is a source already, by whatever path
  //   ENOTTY  the path does not lead to an evdev node (EINVAL from some other devices)
  // REQUIRES: a further node has joined, and has a path; that of the socket has at most 107 characters (the process is
  // aborted otherwise)
  bool open(Source source, const char* path);

  // From now on, attend() opens this source when it is not open, and tries so each `everyMs` ms (1 or more) for as long
  // as that fails. The path must stay valid; null ends it. REQUIRES of the path what open() does.
  void keepOpen(Source source, const char* path, unsigned everyMs) { paths_[source] = {path, everyMs, {}}; }

  // Takes over what is down on a node that was opened just now: no key-down comes, but a key-up will, and Shift,
  // Control and Alt count. (The kernel takes keys that were typed before from the queue.) Of the keyboard, the light of
  // Num Lock becomes the reader's numLock. Returns false, with errno, if the node does not say: EBADF, it is not open.
  bool adopt(Source source);

  // Makes a further node a source: a second keyboard or mouse, or a remote that the kernel decodes. It is not open yet.
  // Its records go through the same reader, so the pointer, the modifiers and the clicks are one. Returns false if
  // there are kMostFurtherNodes. REQUIRES: it has not joined before
  bool join(FurtherNode& node);

  // ---- What is down, and who gets it -------------------------------------------------------------

  // Whether a key or button (KEY_* and BTN_* of linux/input-event-codes.h) is down on a node, as far as next() has
  // given it.
  bool isDown(Source source, unsigned code) const { return loop_.channels_.all[source]->isDown(code); }

  // Grabs a node (EVIOCGRAB), so that nobody else gets what it sends: no other process, and not the console behind a
  // full-screen application; nor does the kernel, so Ctrl+Alt+F1 switches no console, and SysRq does nothing. Or gives
  // it back. Either is done when none of its keys is down, now or by attend(), since others would not see that key go
  // down or come up. A node that has gone is grabbed again when it comes back. Returns whether it is done; if not,
  // errno says why:
  //   EAGAIN  a key is down, or there is something to be taken first
  //   EBUSY   another process has grabbed it: attend() goes on trying
  //   EBADF   it is not open
  //   ENOTTY  it is a FIFO
  // REQUIRES: the source is not kRemote, and next() has returned false since the last wait
  bool grab(Source source, bool on);

  // Whether nobody else gets what the node sends.
  bool isGrabbed(Source source) const { return (grabbed_ >> source & 1) != 0; }

 private:
  using Channel = InputLoop::Channel;
  using Node = InputLoop::Node;

  struct Path {
    const char* path;
    unsigned everyMs;
    timeval tried;
  };

  void settle(Node& node);
  void use(Channel& channel, int fd);
  void letGo(Channel& channel);
  int retry(Channel& channel, Path& path, int timeoutMs);
  bool isNewNode(int fd) const;

  InputLoop& loop_;
  LinuxInputReader& reader_;
  SourceSet lost_ = 0;
  SourceSet behind_ = 0;  // what was given of them is not what is down
  SourceSet opened_ = 0;
  SourceSet wanted_ = 0;  // to be grabbed
  SourceSet grabbed_ = 0;
  Path paths_[InputLoop::kSources] = {};
};

}  // namespace quarlo::components::input
