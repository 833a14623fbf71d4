// The sources in Qt's event loop: a notifier for each descriptor, and a timer for when the loop has something to do at
// a certain time. It uses only QtCore, and no class of its own that moc would have to see.
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <cstdint>
#include <vector>

#include "examples/application.h"
#include "input/input_loop.h"

namespace example {

class QtLoop {
 public:
  QtLoop(InputLoop& loop, Application& application) : loop_(loop), application_(application) {
    deadline_.setSingleShot(true);
    deadline_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&deadline_, &QTimer::timeout, [this] { takeAll(); });
    takeAll();
  }
  ~QtLoop() { removeNotifiers(); }
  QtLoop(const QtLoop&) = delete;
  QtLoop& operator=(const QtLoop&) = delete;

 private:
  void takeAll() {
    InputEvent event;
    while (loop_.next(event)) application_.handle(event);
    application_.lose(loop_.gone());
    application_.draw();
    if (application_.isOver()) QCoreApplication::quit();
    if (notifiers_.empty() || loop_.generation() != generation_) addNotifiers();
    deadline_.stop();
    if (loop_.timeoutMs() >= 0) deadline_.start(loop_.timeoutMs());
  }

  void addNotifiers() {
    removeNotifiers();
    pollfd fds[InputLoop::kMaxDescriptors];
    const int count = loop_.descriptors(fds);
    for (int i = 0; i < count; ++i) {
      const int fd = fds[i].fd;
      notifiers_.push_back(new QSocketNotifier(fd, QSocketNotifier::Read));
      QObject::connect(notifiers_.back(), &QSocketNotifier::activated, [this, fd] {
        loop_.setReady(fd, POLLIN);  // a notifier does not say more
        takeAll();
      });
    }
    generation_ = loop_.generation();
  }

  // Not deleted at once: one of them may be the one that calls.
  void removeNotifiers() {
    for (QSocketNotifier* notifier : notifiers_) {
      notifier->setEnabled(false);
      notifier->deleteLater();
    }
    notifiers_.clear();
  }

  InputLoop& loop_;
  Application& application_;
  QTimer deadline_;
  std::vector<QSocketNotifier*> notifiers_;
  std::uint32_t generation_ = 0;
};

}  // namespace example

int main(int argc, char** argv) {
  QCoreApplication qt(argc, argv);
  example::LinuxInputReader reader;
  if (!example::open(reader, argc, argv)) return 1;
  example::InputLoop loop(reader);
  example::Application application(reader);
  const example::QtLoop input(loop, application);
  QCoreApplication::exec();
  return application.end();
}
