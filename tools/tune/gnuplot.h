// Pictures drawn by gnuplot, which is needed only when one is asked for.
#pragma once

#include <stdexcept>
#include <string>

namespace quarlo::tools::tune {

// Why there is no picture, for a person. It can hold a path as it was given: escape it before it reaches a terminal.
class PictureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What the file is called in messages.
constexpr char kPicture[] = "the picture";

// Has gnuplot run a script that draws on its standard output, and then puts the picture into a file, in the place of
// one that is there, whose mode it takes. Throws PictureError or NewFileError, and leaves what is there, if it cannot.
void drawPicture(const std::string& path, const std::string& script);

}  // namespace quarlo::tools::tune
