// A machine on which a scenario happens: the simulated one, or a real kernel. A scenario is written once, linked with
// either, and must give the same on both.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "sim/machine.h"

namespace quarlo::test {

using std::chrono::milliseconds;

// What an evdev node says about itself. On a kernel it has no `uniq`.
using Description = sim::Device;

// The typical ones. The keyboard has auto-repeat; the mouse has five buttons and a wheel.
Description keyboard(const std::string& name = "Keyboard");
Description mouse(const std::string& name = "Mouse");
Description keyboardWithTouchpad();
Description touchscreen();
Description powerButton();
Description mediaKeys();

// A device that is plugged in.
class Plugged {
 public:
  virtual ~Plugged() = default;

  // Its node: /dev/input/event<number>.
  virtual std::string path() const = 0;

  // What a driver reports.
  virtual void report(int type, int code, int value) = 0;

  virtual void unplug() = 0;

  // Has another process grab the node, and keep it. Returns whether it could.
  virtual bool grabElsewhere() = 0;
  virtual void letGoElsewhere() = 0;

  // The usual reports, each with its SYN_REPORT.
  void press(int code);
  void release(int code);
  void tap(int code);
  void move(int dx, int dy);
};

// A LIRC daemon that runs.
class Remote {
 public:
  virtual ~Remote() = default;

  virtual std::string socketPath() const = 0;

  // Has it send the line of a button to all clients, and returns when they have it.
  virtual void send(const std::string& button, unsigned repeat) = 0;

  // Has it read its configuration again, of which it tells its clients.
  virtual void reload() = 0;

  // Ends it. Its socket's file stays.
  virtual void stop() = 0;

  // Removes its socket's file. REQUIRES: it was stopped.
  virtual void removeSocket() = 0;
};

class World {
 public:
  virtual ~World() = default;

  // The device gets the lowest number that is free. It is there until it is unplugged or the world ends.
  virtual Plugged& plug(const Description& device) = 0;

  // Makes a symbolic link, as udev does below /dev/input/by-id. REQUIRES: `link` is a name in a directory of
  // /dev/input.
  virtual void link(const std::string& link, const std::string& target) = 0;

  // Starts a daemon, or another one after the last was stopped.
  virtual Remote& startDaemon() = 0;

  // Sets a variable of the environment, until the world ends.
  virtual void setEnvironment(const std::string& name, const std::string& value) = 0;

  // Lets time pass.
  virtual void pass(milliseconds time) = 0;

  // Sets the clock on the wall forward by whole seconds, until the world ends.
  virtual void jumpClock(milliseconds by) = 0;
};

// The machine that this program is linked with. REQUIRES: there is no other one.
std::unique_ptr<World> makeWorld();

}  // namespace quarlo::test
