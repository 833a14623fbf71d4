#include "tools/common/damages.h"

#include "tools/common/output.h"

namespace quarlo::tools {

int sayDamages(const recording::Session& session) {
  for (const recording::Damage& damage : session.damages) complain(damage.problem + "; " + damage.consequence);
  return session.damages.empty() ? kDone : kFailed;
}

}  // namespace quarlo::tools
