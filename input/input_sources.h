// InputSources: keeps an InputLoop's sources usable for as long as the application runs.
//
// An InputLoop takes what its sources send. What they do not send is this class's work: it lets no key stay down that
// is up, opens what has gone, adds further nodes, and grabs nodes. It makes nothing happen behind the application's
// back: all is done in attend(), which is called in each round, and in the functions that say so.
//
//   LinuxInputReader reader;
//   reader.init(mouse, keyboard, lircSocket, 1919, 1079);
//   InputLoop loop(reader);
//   InputSources sources(loop);
//   sources.keepOpen(InputLoop::kKeyboard, keyboard, 1000);  // if it goes, look for it each second
//   LinuxInputReader::InputEvent event;
//   int timeoutMs = sources.attend(-1);
//   for (;;) {
//     loop.wait(timeoutMs);
//     while (loop.next(event)) handle(event);
//     timeoutMs = sources.attend(-1);  // right after next(), when nothing is unread
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
// to what was given: first what has come up, then what has gone down, each in the order of the codes. As long as there
// is always something unread when attend() is called, the question waits. Motion that was dropped is lost, and so is a
// tap that fell between attend()'s look at the node and the question, some microseconds later: the kernel takes the
// records of keys from the queue when it answers. What a node sends while another process has grabbed it reaches nobody
// else, and the kernel does not say so.
//
// What is made up in this way are records like all others (EV_KEY, with no time, which tells them from what was read).
// They go through the reader, so clicks and modifiers count, and InputLoop's cause() counts them, too.
//
// While there is an InputSources, the reader's descriptors are its own: do not close or replace them. (One that was
// closed all the same is found to be gone, and the number is left to whoever has it now.)
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
  // The loop's.
  using Source = InputLoop::Source;
  using SourceSet = InputLoop::SourceSet;

  // A further node: its queue, about 1.2 KB on a 32-bit target and 1.7 KB on a 64-bit one. It must stay where it is,
  // and closes its descriptor at its end.
  class FurtherNode {
   public:
    FurtherNode() {
      node_.source = static_cast<Source>(InputLoop::kSources);  // none
      node_.readerFd = -1;
      node_.fd = -1;
    }
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
  // takes and gives back grabs. Call it in each round, right after next() has returned false. Returns how long to wait
  // then, in ms: `timeoutMs`, or less if a source is to be opened by then; -1: no limit. Where another event loop
  // waits, look at InputLoop::generation() and timeoutMs() after it. REQUIRES: next() has returned false since the last
  // wait
  int attend(int timeoutMs);

  // The nodes of which the last round has shown that records were lost. What to make up for it follows, at once if the
  // node pauses. One that cannot say what is down (a FIFO) stays as it was.
  SourceSet lost() const { return lost_; }

  // The sources that the last attend() has opened.
  SourceSet opened() const { return opened_; }

  // ---- Opening -----------------------------------------------------------------------------------

  // Opens a source that is not open: an evdev node, or the LIRC daemon's socket. For the keyboard and the mouse, a null
  // path searches as the reader's init() does, and takes the first one that fits. That grabs every node for a moment:
  // what is typed then is lost, and attend() asks the open nodes what has come up. Returns false, with errno as of
  // open(2) or connect(2) (a search that finds nothing: of what failed last), or
  //   EBUSY   it is open, or attend() has not closed it yet, or next() has not given all that it held
  //   EEXIST  the node is a source already, by whatever path (a search: the first one that fits)
  //   ENOTTY  the path does not lead to an evdev node (EINVAL from some other devices)
  // REQUIRES: a path, but for those two; that of the socket has at most 107 characters (the process is aborted
  // otherwise); a further node has joined
  bool open(Source source, const char* path);

  // From now on, attend() opens this source when it is not open, and tries so each `everyMs` ms (1 or more) for as long
  // as that fails. What init() took can be refused here: a FIFO, a node that is mouse and keyboard. A number such as
  // event3 can be another device's later; names below /dev/input/by-id and by-path stay. The path must stay valid; null
  // ends it. REQUIRES what open() does.
  void keepOpen(Source source, const char* path, unsigned everyMs) {
    timeval tried = {};
    gettimeofday(&tried, nullptr);
    tried.tv_sec -= static_cast<time_t>(everyMs / 1000) + 1;  // so the first try is at once
    paths_[source] = {path, everyMs, tried};
  }

  // Takes over what is down on a node that was opened just now, before the first wait with it: no key-down comes, but a
  // key-up will, and Shift, Control and Alt count. (The kernel takes keys that were typed before from the queue.) Of
  // the keyboard, the light of Num Lock becomes the reader's numLock. Returns false, with errno, if the node does not
  // say: EBADF, it is not open. REQUIRES: a further node has joined
  bool adopt(Source source);

  // Makes a further node a source: a second keyboard or mouse, or a remote that the kernel decodes. It is not open yet.
  // Its records go through the same reader, so the pointer, the modifiers and the clicks are one. Of a key that is down
  // on two nodes, the first key-up counts, but for Shift, Control and Alt. Returns false if there are
  // kMostFurtherNodes. REQUIRES: it has not joined before
  bool join(FurtherNode& node);

  // ---- What is down, and who gets it -------------------------------------------------------------

  // Whether a key or button (KEY_* and BTN_* of linux/input-event-codes.h) is down on a node, as far as next() has
  // given it. REQUIRES: a further node has joined
  bool isDown(Source source, unsigned code) const { return loop_.state_.channels.all[source]->isDown(code); }

  // Grabs a node (EVIOCGRAB), so that nobody else gets what it sends: no other process, and not the console behind a
  // full-screen application; nor does the kernel, so Ctrl+Alt+F1 switches no console, and SysRq does nothing. Or gives
  // it back. Either is done when none of its keys is down, now or by attend(), since others would not see that key go
  // down or come up. What is down and was neither given nor adopted comes as a key-down. A node that has gone is
  // grabbed again when it comes back. Returns whether it is done; if not, errno says why:
  //   EAGAIN  a key is down, or there is something to be taken first
  //   EBUSY   another process has grabbed it: each attend() tries again (which nothing hurries)
  //   EBADF   it is not open
  //   ENOTTY  it is a FIFO
  // REQUIRES: the source is not kRemote, a further node has joined, and next() has returned false since the last wait
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

  Channel& find(Source source) const;
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
  Path paths_[InputLoop::kSources + 1] = {};  // the last one is of nodes that have not joined
};

}  // namespace quarlo::components::input
