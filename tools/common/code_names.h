// The names that linux/input.h and linux/input-event-codes.h give to what a device sends: those of the compiler that
// built the program.
#pragma once

#include <string>

namespace quarlo::tools {

// "EV_KEY"; a type without a name by its number, such as "0x1e".
std::string typeName(int type);

// "KEY_PLAYPAUSE", "BTN_LEFT" (not BTN_MOUSE, as its group is called), "ABS_MT_SLOT"; a code without a name by its
// number, such as "0x2ff".
std::string codeName(int type, int code);

}  // namespace quarlo::tools
