#include "sim/machine.h"

#include <cstdio>
#include <utility>

#include "sim/kernel.h"

namespace quarlo::sim {

// ---- Device -------------------------------------------------------------------------------------

Device Device::keyboard(std::string name) {
  std::set<int> keys;
  for (int code = KEY_ESC; code <= KEY_COMPOSE; ++code) keys.insert(code);
  return {std::move(name),
          {{EV_KEY, keys}, {EV_MSC, {MSC_SCAN}}, {EV_LED, {LED_NUML, LED_CAPSL, LED_SCROLLL}}, {EV_REP, {}}}};
}

Device Device::mouse(std::string name) {
  return {std::move(name),
          {{EV_KEY, {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE, BTN_SIDE, BTN_EXTRA}},
           {EV_REL, {REL_X, REL_Y, REL_WHEEL}},
           {EV_MSC, {MSC_SCAN}}}};
}

Device Device::touchscreen(std::string name) {
  return {std::move(name), {{EV_KEY, {BTN_TOUCH}}, {EV_ABS, {ABS_X, ABS_Y}}}};
}

// ---- Node ---------------------------------------------------------------------------------------

Node::Node(std::shared_ptr<NodeState> state) : state_(std::move(state)) {}

void Node::report(int type, int code, int value) { state_->report(type, code, value); }

void Node::press(int code) {
  report(EV_KEY, code, 1);
  report(EV_SYN, SYN_REPORT, 0);
}

void Node::release(int code) {
  report(EV_KEY, code, 0);
  report(EV_SYN, SYN_REPORT, 0);
}

void Node::repeat(int code) {
  report(EV_KEY, code, 2);
  report(EV_SYN, SYN_REPORT, 1);
}

void Node::move(int dx, int dy) {
  report(EV_REL, REL_X, dx);
  report(EV_REL, REL_Y, dy);
  report(EV_SYN, SYN_REPORT, 0);
}

void Node::inject(int type, int code, int value) { state_->deliver(type, code, value); }

void Node::setState(int type, int code, bool isOn) { state_->setState(type, code, isOn); }

void Node::onRead(std::function<void(std::uint64_t)> take) { state_->onRead = std::move(take); }

void Node::unplug() { state_->unplug(); }

void Node::setGrabbedElsewhere(bool grabbed) { state_->grabbedElsewhere = grabbed; }

bool Node::isGrabbed() const { return state_->grabbedElsewhere || state_->grabber != nullptr; }

void Node::setOpenError(int error) { state_->openError = error; }

void Node::setIoctlError(unsigned request, int error) {
  if (error == 0) {
    state_->ioctlErrors.erase(withoutSize(request));
  } else {
    state_->ioctlErrors[withoutSize(request)] = error;
  }
}

void Node::cutStates(std::size_t bytes) { state_->mostStates = bytes; }

// ---- LircDaemon ---------------------------------------------------------------------------------

LircDaemon::LircDaemon(std::shared_ptr<DaemonState> state) : state_(std::move(state)) {}

void LircDaemon::send(const std::string& button, unsigned repeat) {
  char count[16];
  std::snprintf(count, sizeof count, "%02x", repeat);
  sendText("0000000000f40bf0 " + std::string(count) + " " + button + " myremote\n");
}

void LircDaemon::sendText(const std::string& text) { state_->send(text); }

void LircDaemon::hangUp() {
  for (const auto& client : state_->clients) client->end();
  state_->clients.clear();
}

bool LircDaemon::hasClients() const { return state_->hasClients(); }

void LircDaemon::stop() {
  hangUp();
  state_->running = false;
}

void LircDaemon::removeSocket() { state_->hasSocket = false; }

// ---- Outside ------------------------------------------------------------------------------------

Outside::Outside() { Kernel::goPast(1); }
Outside::~Outside() { Kernel::goPast(-1); }

// ---- Machine ------------------------------------------------------------------------------------

Machine::Machine() : kernel_(std::make_unique<Kernel>()) {}
Machine::~Machine() = default;

Node& Machine::addNode(const std::string& path, Device device) {
  auto state = std::make_shared<NodeState>(std::move(device), *kernel_);
  kernel_->addNode(path, state);
  nodes_.push_back(std::unique_ptr<Node>(new Node(std::move(state))));
  return *nodes_.back();
}

void Machine::addLink(const std::string& path, const std::string& target) { kernel_->addLink(path, target); }

LircDaemon& Machine::addLircDaemon(const std::string& path) {
  auto state = std::make_shared<DaemonState>();
  kernel_->addDaemon(path, state);
  daemons_.push_back(std::unique_ptr<LircDaemon>(new LircDaemon(std::move(state))));
  return *daemons_.back();
}

void Machine::setEnvironment(const std::string& name, const std::string& value) {
  kernel_->setEnvironment(name, value);
}

microseconds Machine::now() const { return kernel_->now(); }
void Machine::advance(microseconds time) { kernel_->advance(time); }
void Machine::jumpClock(microseconds by) { kernel_->jumpClock(by); }
void Machine::after(microseconds delay, std::function<void()> happening) {
  kernel_->after(delay, std::move(happening));
}
void Machine::setCallTime(microseconds time) { kernel_->setCallTime(time); }
void Machine::signalAfter(microseconds delay) { kernel_->signalAfter(delay); }
bool Machine::hasScheduled() const { return kernel_->hasScheduled(); }
std::optional<microseconds> Machine::untilNext() const { return kernel_->untilNext(); }
bool Machine::hasUnread() const { return kernel_->hasUnread(); }
void Machine::onWait(std::function<void(microseconds)> pace) { kernel_->onWait(std::move(pace)); }
void Machine::fail(Call call, int count, int error) { kernel_->fail(call, count, error); }
void Machine::truncateRead(int count, std::size_t bytes, Call call) { kernel_->truncateRead(count, bytes, call); }
int Machine::count(Call call) const { return kernel_->count(call); }
std::vector<std::string> Machine::takeTrace() { return kernel_->takeTrace(); }
void Machine::setTracing(bool on) { kernel_->setTracing(on); }
void Machine::setFirstDescriptor(int number) { kernel_->setFirstDescriptor(number); }
int Machine::openDescriptors() const { return kernel_->openDescriptors(); }

}  // namespace quarlo::sim
