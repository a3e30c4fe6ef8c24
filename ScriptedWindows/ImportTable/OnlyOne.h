// What replacements, which are plain functions, find their object by.
#pragma once

#include "ScriptedWindows/Complaint.h"

// Base of a class of which one object lives at a time in a process.
template <typename Class>
class OnlyOne {
 public:
  static Class& Current() { return *s_current; }

 private:
  friend Class;
  OnlyOne(const OnlyOne&) = delete;
  OnlyOne& operator=(const OnlyOne&) = delete;
  OnlyOne() {
    Require(s_current == nullptr, "there is an object of the class already");
    s_current = static_cast<Class*>(this);
  }
  ~OnlyOne() { s_current = nullptr; }

  static inline Class* s_current = nullptr;
};
