// What ends the program where nobody catches an exception, such as that of full memory. libstdc++'s own handler, whose
// place this takes, can also print the names of types as C++ writes them, for which a static program would be larger.
#include <cstdio>
#include <cstdlib>
#include <exception>

namespace __gnu_cxx {  // NOLINT(bugprone-reserved-identifier): libstdc++ declares it in <exception>

void __verbose_terminate_handler() {  // NOLINT(bugprone-reserved-identifier)
  try {
    if (const std::exception_ptr uncaught = std::current_exception()) std::rethrow_exception(uncaught);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quarlo-input: %s\n", error.what());
  } catch (...) {
    std::fputs("quarlo-input: unknown exception\n", stderr);
  }
  std::abort();
}

}  // namespace __gnu_cxx
