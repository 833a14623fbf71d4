// The application's key message types: what a key code and a modifier set are, and the values in use.
#pragma once

#include <cstdint>

namespace quarlo::msg {

struct KeyInput {
  // A key code in the application's own code space; kNone (0) means no key. Letters and digits have the ASCII value of
  // the upper-case character. A remote button whose name is one character has that character's byte value, so any value
  // from 1 to 255 can occur.
  using Key = std::int32_t;

  // No key.
  static constexpr Key kNone = 0;

  // Keys that edit, move or modify, and Space.
  static constexpr Key kBackspace = 8;
  static constexpr Key kTab = 9;
  static constexpr Key kEnter = 13;
  static constexpr Key kShift = 16;
  static constexpr Key kControl = 17;
  static constexpr Key kAlt = 18;
  static constexpr Key kPause = 19;
  static constexpr Key kEscape = 27;
  static constexpr Key kSpace = 32;
  static constexpr Key kPageUp = 33;
  static constexpr Key kPageDown = 34;
  static constexpr Key kEnd = 35;
  static constexpr Key kHome = 36;
  static constexpr Key kLeft = 37;
  static constexpr Key kUp = 38;
  static constexpr Key kRight = 39;
  static constexpr Key kDown = 40;
  static constexpr Key kInsert = 45;
  static constexpr Key kDelete = 46;

  // Digits, of the main block and of a remote.
  static constexpr Key k0 = 48;
  static constexpr Key k1 = 49;
  static constexpr Key k2 = 50;
  static constexpr Key k3 = 51;
  static constexpr Key k4 = 52;
  static constexpr Key k5 = 53;
  static constexpr Key k6 = 54;
  static constexpr Key k7 = 55;
  static constexpr Key k8 = 56;
  static constexpr Key k9 = 57;

  // Letters.
  static constexpr Key kA = 65;
  static constexpr Key kB = 66;
  static constexpr Key kC = 67;
  static constexpr Key kD = 68;
  static constexpr Key kE = 69;
  static constexpr Key kF = 70;
  static constexpr Key kG = 71;
  static constexpr Key kH = 72;
  static constexpr Key kI = 73;
  static constexpr Key kJ = 74;
  static constexpr Key kK = 75;
  static constexpr Key kL = 76;
  static constexpr Key kM = 77;
  static constexpr Key kN = 78;
  static constexpr Key kO = 79;
  static constexpr Key kP = 80;
  static constexpr Key kQ = 81;
  static constexpr Key kR = 82;
  static constexpr Key kS = 83;
  static constexpr Key kT = 84;
  static constexpr Key kU = 85;
  static constexpr Key kV = 86;
  static constexpr Key kW = 87;
  static constexpr Key kX = 88;
  static constexpr Key kY = 89;
  static constexpr Key kZ = 90;

  // The keypad, with or without Num Lock.
  static constexpr Key kKeypad0 = 96;
  static constexpr Key kKeypad1 = 97;
  static constexpr Key kKeypad2 = 98;
  static constexpr Key kKeypad3 = 99;
  static constexpr Key kKeypad4 = 100;
  static constexpr Key kKeypad5 = 101;
  static constexpr Key kKeypad6 = 102;
  static constexpr Key kKeypad7 = 103;
  static constexpr Key kKeypad8 = 104;
  static constexpr Key kKeypad9 = 105;
  static constexpr Key kKeypadMultiply = 106;
  static constexpr Key kKeypadAdd = 107;
  static constexpr Key kKeypadSubtract = 109;
  static constexpr Key kKeypadDecimal = 110;
  static constexpr Key kKeypadDivide = 111;

  // Function keys.
  static constexpr Key kF1 = 112;
  static constexpr Key kF2 = 113;
  static constexpr Key kF3 = 114;
  static constexpr Key kF4 = 115;
  static constexpr Key kF5 = 116;
  static constexpr Key kF6 = 117;
  static constexpr Key kF7 = 118;
  static constexpr Key kF8 = 119;
  static constexpr Key kF9 = 120;
  static constexpr Key kF10 = 121;
  static constexpr Key kF11 = 122;
  static constexpr Key kF12 = 123;

  // The lock of the keypad.
  static constexpr Key kNumLock = 144;

  // Punctuation, by what the key types on a US keyboard without Shift.
  static constexpr Key kSemicolon = 186;
  static constexpr Key kEquals = 187;
  static constexpr Key kComma = 188;
  static constexpr Key kMinus = 189;
  static constexpr Key kFullStop = 190;
  static constexpr Key kSlash = 191;
  static constexpr Key kGrave = 192;
  static constexpr Key kLeftBracket = 219;
  static constexpr Key kBackslash = 220;
  static constexpr Key kRightBracket = 221;
  static constexpr Key kApostrophe = 222;

  // Keys of remotes and of multimedia keyboards.
  static constexpr Key kRed = 403;
  static constexpr Key kGreen = 404;
  static constexpr Key kYellow = 405;
  static constexpr Key kBlue = 406;
  static constexpr Key kPower = 409;
  static constexpr Key kRewind = 412;
  static constexpr Key kStop = 413;
  static constexpr Key kPlay = 415;
  static constexpr Key kRecord = 416;
  static constexpr Key kFastForward = 417;
  static constexpr Key kPreviousTrack = 424;  // also a keyboard's Back key
  static constexpr Key kNextTrack = 425;      // also a keyboard's Forward key
  static constexpr Key kChannelUp = 427;
  static constexpr Key kChannelDown = 428;
  static constexpr Key kVolumeUp = 447;
  static constexpr Key kVolumeDown = 448;
  static constexpr Key kMute = 449;
  static constexpr Key kBack = 461;  // a remote's BACK and RETURN, a keyboard's Exit key
  static constexpr Key kMenu = 462;

  // The modifier keys held, as a set of bits.
  using Modifier = std::uint32_t;

  // The bits of a Modifier.
  static constexpr Modifier kNoModifier = 0;
  static constexpr Modifier kControlModifier = 1;
  static constexpr Modifier kShiftModifier = 2;
  static constexpr Modifier kAltModifier = 4;
};

}  // namespace quarlo::msg
