#include "tools/commands.h"

#include "tools/doctor/command.h"
#include "tools/keymap/command.h"
#include "tools/list/command.h"
#include "tools/monitor/command.h"
#include "tools/record/command.h"
#include "tools/replay/command.h"
#include "tools/report/command.h"
#include "tools/tune/command.h"

namespace quarlo::tools {

std::vector<Command> commands() {
  return {monitor::command(), list::command(),   doctor::command(), keymap::command(),
          record::command(),  replay::command(), report::command(), tune::command()};
}

}  // namespace quarlo::tools
