// The simulated machine as a world.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/machine.h"
#include "tests/scenario/world.h"

namespace quarlo::test {
namespace {

class SimPlugged : public Plugged {
 public:
  SimPlugged(sim::Node& node, std::string path) : node_(node), path_(std::move(path)) {}

  std::string path() const override { return path_; }
  bool isPresent() const { return present_; }
  void report(int type, int code, int value) override { node_.report(type, code, value); }

  void unplug() override {
    node_.unplug();
    present_ = false;
  }

  bool grabElsewhere() override {
    if (node_.isGrabbed()) return false;
    node_.setGrabbedElsewhere(true);
    return true;
  }

  void letGoElsewhere() override { node_.setGrabbedElsewhere(false); }

 private:
  sim::Node& node_;
  std::string path_;
  bool present_ = true;
};

class SimRemote : public Remote {
 public:
  explicit SimRemote(sim::LircDaemon& daemon) : daemon_(daemon) {}

  std::string socketPath() const override { return kSocketPath; }
  void send(const std::string& button, unsigned repeat) override { daemon_.send(button, repeat); }
  void reload() override { daemon_.sendText("BEGIN\nSIGHUP\nEND\n"); }
  void stop() override { daemon_.stop(); }
  void removeSocket() override { daemon_.removeSocket(); }

  static constexpr char kSocketPath[] = "/run/lircd";

 private:
  sim::LircDaemon& daemon_;
};

class SimWorld : public World {
 public:
  Plugged& plug(const Description& device) override {
    const std::string path = lowestFreePath();
    sim::Node& node = machine_.addNode(path, device);
    plugged_.push_back(std::make_unique<SimPlugged>(node, path));
    return *plugged_.back();
  }

  void link(const std::string& link, const std::string& target) override { machine_.addLink(link, target); }

  Remote& startDaemon() override {
    remotes_.push_back(std::make_unique<SimRemote>(machine_.addLircDaemon(SimRemote::kSocketPath)));
    return *remotes_.back();
  }

  void setEnvironment(const std::string& name, const std::string& value) override {
    machine_.setEnvironment(name, value);
  }

  void pass(milliseconds time) override { machine_.advance(time); }
  void jumpClock(milliseconds by) override { machine_.jumpClock(by); }

 private:
  std::string lowestFreePath() const {
    for (int number = 0;; ++number) {
      std::string path = "/dev/input/event" + std::to_string(number);
      bool taken = false;
      for (const auto& device : plugged_) taken = taken || (device->isPresent() && device->path() == path);
      if (!taken) return path;
    }
  }

  sim::Machine machine_;
  std::vector<std::unique_ptr<SimPlugged>> plugged_;
  std::vector<std::unique_ptr<SimRemote>> remotes_;
};

}  // namespace

std::unique_ptr<World> makeWorld() { return std::make_unique<SimWorld>(); }

}  // namespace quarlo::test
