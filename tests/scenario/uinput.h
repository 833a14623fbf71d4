// An input device of a real kernel that a test makes, with the kernel's uinput driver.
#pragma once

#include <string>

#include "tests/scenario/world.h"

namespace quarlo::test {

class UinputDevice final : public Plugged {
 public:
  // REQUIRES: /dev/uinput can be opened, and `device` has at most 79 characters in its name.
  explicit UinputDevice(const Description& device);
  ~UinputDevice() override;
  UinputDevice(const UinputDevice&) = delete;
  UinputDevice& operator=(const UinputDevice&) = delete;

  std::string path() const override { return path_; }
  void report(int type, int code, int value) override;
  void unplug() override;
  bool grabElsewhere() override;
  void letGoElsewhere() override;

 private:
  int fd_;
  std::string path_;
  int holder_ = -1;  // the process that has grabbed the node
};

}  // namespace quarlo::test
