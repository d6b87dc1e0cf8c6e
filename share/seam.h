// The slot a seam keeps its installed implementation in: the program runs on
// the real implementation until a test (or the program) installs another.
#pragma once

template <class Interface>
class CSeamSlot {
 public:
  static Interface *Installed() { return installed_; }
  // Puts `next` in place (null: none) and returns what was there.
  static Interface *Swap(Interface *next) {
    Interface *old = installed_;
    installed_ = next;
    return old;
  }

 private:
  static inline Interface *installed_ = nullptr;
};
