# Turns the headers' plain comments into Doxygen's, for docs/Doxyfile.
#
# - A comment above a declaration documents it and all that follow without an empty line between them.
# - A comment behind a declaration documents that one, instead.
# - The comment at the top documents the file, and the class that has the file's name, if that has no comment of its own.
# - Lines that are indented by three blanks are shown as they are. REQUIRES: starts a precondition.

# Text in which nothing is a command, a tag or markup, except for `code`.
function plain(text) {
  gsub(/[\\@<>#*&~]/, "\\\\&", text)
  gsub(/--/, "\\--", text)
  sub(/REQUIRES:/, "\n/// @pre", text)
  return text
}

# The lines of a comment, without their //, for Doxygen. What is indented by four more blanks is shown as it is.
function converted(comment,    lines, count, i, isShown, wasShown, result) {
  count = split(comment, lines, "\n")
  for (i = 1; i < count; ++i) {
    wasShown = isShown
    isShown = lines[i] ~ /^   /
    if (isShown != wasShown) result = result "///\n"
    result = result "///" (isShown ? "    " lines[i] : plain(lines[i])) "\n"
  }
  return result
}

# linux_input_reader.h: LinuxInputReader
function className(file,    words, count, i, result) {
  sub(/.*\//, "", file)
  sub(/\.h$/, "", file)
  count = split(file, words, "_")
  for (i = 1; i <= count; ++i) result = result toupper(substr(words[i], 1, 1)) substr(words[i], 2)
  return result
}

/^ *\/\// {
  sub(/^ *\/\//, "")
  comment = comment $0 "\n"
  next
}

/^#pragma once/ {
  top = comment
  comment = ""
  printf "/// @file\n%s", converted(top)
}

/^ *($|})/ {
  comment = ""
}

{
  behind = $0 !~ /^}/ && match($0, /  +\/\/ /) ? substr($0, RSTART + RLENGTH) : ""
  code = behind == "" ? $0 : substr($0, 1, RSTART - 1)
  if (startsDeclaration && behind == "") {
    if (code ~ "^(class|struct) " className(FILENAME) " " && comment == "") comment = top
    if (comment != "") printf "%s", converted(comment)
  }
  print code (behind == "" ? "" : "  ///< " plain(behind))
  startsDeclaration = code ~ /[;{}:]$/ || code ~ /^ *$/
  if (code ~ /[{}:]$/) comment = ""
}
