// The sources in GLib's main loop: a watch for each descriptor, and a source that is due when the loop has something to
// do at a certain time.
#include <glib-unix.h>
#include <glib.h>

#include <cstdint>
#include <vector>

#include "examples/application.h"
#include "input/input_loop.h"

namespace example {

class GlibLoop {
 public:
  GlibLoop(InputLoop& loop, Application& application) : loop_(loop), application_(application) {
    g_source_set_callback(deadline_, &GlibLoop::onDeadline, this, nullptr);
    g_source_attach(deadline_, nullptr);
    takeAll();
  }
  ~GlibLoop() {
    removeWatches();
    g_source_destroy(deadline_);
    g_source_unref(deadline_);
    g_main_loop_unref(main_);
  }
  GlibLoop(const GlibLoop&) = delete;
  GlibLoop& operator=(const GlibLoop&) = delete;

  void run() { g_main_loop_run(main_); }

 private:
  static gboolean onReadable(gint fd, GIOCondition condition, gpointer self) {
    static_cast<GlibLoop*>(self)->loop_.setReady(fd, condition);  // GLib's bits are those of poll()
    static_cast<GlibLoop*>(self)->takeAll();
    return G_SOURCE_CONTINUE;
  }

  static gboolean onDeadline(gpointer self) {
    static_cast<GlibLoop*>(self)->takeAll();
    return G_SOURCE_CONTINUE;
  }

  void takeAll() {
    InputEvent event;
    while (loop_.next(event)) application_.handle(event);
    application_.lose(loop_.gone());
    application_.draw();
    if (application_.isOver()) g_main_loop_quit(main_);
    if (watches_.empty() || loop_.generation() != generation_) addWatches();
    const gint64 timeoutMs = loop_.timeoutMs();
    g_source_set_ready_time(deadline_, timeoutMs < 0 ? -1 : g_get_monotonic_time() + timeoutMs * 1000);
  }

  void addWatches() {
    removeWatches();
    pollfd fds[InputLoop::kMaxDescriptors];
    const int count = loop_.descriptors(fds);
    for (int i = 0; i < count; ++i) {
      watches_.push_back(g_unix_fd_add(fds[i].fd, G_IO_IN, &GlibLoop::onReadable, this));
    }
    generation_ = loop_.generation();
  }

  void removeWatches() {
    for (const guint watch : watches_) g_source_remove(watch);
    watches_.clear();
  }

  static GSource* makeDeadline() {
    static GSourceFuncs functions = {};
    functions.dispatch = [](GSource* /*source*/, GSourceFunc callback, gpointer data) { return callback(data); };
    return g_source_new(&functions, sizeof(GSource));
  }

  InputLoop& loop_;
  Application& application_;
  GMainLoop* const main_ = g_main_loop_new(nullptr, FALSE);
  GSource* const deadline_ = makeDeadline();
  std::vector<guint> watches_;
  std::uint32_t generation_ = 0;
};

}  // namespace example

int main(int argc, char** argv) {
  example::LinuxInputReader reader;
  if (!example::open(reader, argc, argv)) return 1;
  example::InputLoop loop(reader);
  example::Application application(reader);
  example::GlibLoop(loop, application).run();
  return application.end();
}
