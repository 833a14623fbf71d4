# Makes a manual page of the help text of a command. Variables: command (empty: the program's own), version, date.

# A line as roff: nothing in it is markup.
function escaped(text) {
  gsub(/\\/, "\\e", text)
  gsub(/-/, "\\-", text)
  return (text ~ /^[.']/ ? "\\&" : "") text
}

# The same where it is typed as it stands.
function literal(text) {
  text = escaped(text)
  gsub(/'/, "\\(aq", text)
  gsub(/`/, "\\(ga", text)
  gsub(/\^/, "\\(ha", text)
  gsub(/~/, "\\(ti", text)
  return text
}

# What stands before a description: "-o,--output FOLDER REQUIRED", "session FOLDER REQUIRED" or "monitor".
function term(text,    words, names, count, i, line) {
  count = split(text, words, " ")
  if (part == "COMMANDS") return "\\fBquarlo\\-input\\-" escaped(words[1]) "\\fR(1)"
  if (part == "ARGUMENTS") return "\\fI" escaped(words[1]) "\\fR"
  split(words[1], names, ",")
  line = "\\fB" escaped(names[1]) "\\fR"
  if (names[2] != "") line = line ", \\fB" escaped(names[2]) "\\fR"
  for (i = 2; i <= count; ++i) line = line " " (words[i] == "REQUIRED" ? "(required)" : "\\fI" escaped(words[i]) "\\fR")
  return line
}

function synopsis(usage,    words, count, i, line) {
  count = split(usage, words, " ")
  line = "\\fB" escaped(words[1]) (command == "" ? "" : " " escaped(command)) "\\fR"
  for (i = command == "" ? 2 : 3; i <= count; ++i) {
    gsub(/[A-Za-z]+/, "\\fI&\\fR", words[i])
    line = line " " words[i]
  }
  return line "\n"
}

function add(heading, text) { sections[heading] = sections[heading] text }

function addParagraph(heading, text) {
  add(heading, (heading in sections ? ".PP\n" : "") text "\n")
}

function capitalized(text) { return toupper(substr(text, 1, 1)) substr(text, 2) }

# A line of prose: what it begins with says where it belongs.
function addProse(line,    at) {
  at = index(line, "Exit status: ")
  if (at > 0) {
    if (at > 1) addProse(substr(line, 1, at - 1))
    endParagraph()
    under = "EXIT STATUS"
    line = capitalized(substr(line, at + 13))
  } else if (sub(/^Examples?: */, "", line)) {
    under = "EXAMPLES"
    line = capitalized(line)
  }
  sub(/ +$/, "", line)
  if (inParagraph) add(under, escaped(line) "\n")
  else addParagraph(under, escaped(line))
  inParagraph = 1
}

# A line to type.
function addVerbatim(line) {
  if (!inVerbatim) addParagraph(under, ".RS 4\n.EX")
  add(under, literal(line) "\n")
  inVerbatim = 1
}

function endParagraph() {
  if (inVerbatim) add(under, ".EE\n.RE\n")
  inVerbatim = 0
  inParagraph = 0
}

BEGIN {
  headings["Options:"] = "OPTIONS"
  headings["Positionals:"] = "ARGUMENTS"
  headings["Subcommands:"] = "COMMANDS"
  under = "DESCRIPTION"
}

NR == 1 {
  summary = tolower(substr($0, 1, 1)) substr($0, 2)
  sub(/\.$/, "", summary)
  addProse($0)
  next
}
sub(/^Usage: /, "") { add("SYNOPSIS", synopsis($0)); endParagraph(); next }
$0 in headings { part = headings[$0]; next }
part != "" && /^  [^ ]/ {
  entry = substr($0, 3)
  if (match(entry, / (Excludes|Needs):( --?[^ ]+)+/)) {
    note = " (" tolower(substr(entry, RSTART + 1, RLENGTH - 1)) ")"
    sub(/:/, "", note)
    entry = substr(entry, 1, RSTART) " " substr(entry, RSTART + RLENGTH) note
  }
  at = match(entry, /  +/)
  add(part, ".TP\n" term(at ? substr(entry, 1, at - 1) : entry) "\n")
  if (at) add(part, escaped(substr(entry, at + RLENGTH)) "\n")
  next
}
part != "" && /^   / { sub(/^ +/, ""); add(part, escaped($0) "\n"); next }
/^$/ { part = ""; endParagraph(); next }
/^  / { addVerbatim(substr($0, 3)); next }
inVerbatim { endParagraph() }
{ addProse($0) }

END {
  endParagraph()
  name = "quarlo-input" (command == "" ? "" : "-" command)
  printf ".TH %s 1 %s \"quarlo-input %s\" \"User Commands\"\n", toupper(literal(name)), date, version
  printf ".SH NAME\n%s \\- %s\n", literal(name), escaped(summary)
  if (command != "") add("SEE ALSO", ".BR quarlo\\-input (1)\n")
  count = split("SYNOPSIS,DESCRIPTION,COMMANDS,ARGUMENTS,OPTIONS,EXAMPLES,EXIT STATUS,SEE ALSO", order, ",")
  for (i = 1; i <= count; ++i) {
    if (order[i] in sections) printf ".SH %s\n%s", order[i], sections[order[i]]
  }
}
