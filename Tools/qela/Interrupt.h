// Ctrl-C, for the commands that wait for the library.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

class Interrupt {
 public:
  // From now on, for the rest of the process: the first Ctrl-C asks the command to end, the second ends the process at
  // once with kInterrupted. Commands that wait only read, so nothing is lost.
  static void Listen();

  // Signalled by the first; null before Listen.
  static HANDLE Event() noexcept;
  static bool WasRequested() noexcept;

  // The command has ended. When the console closes, Windows ends the process as soon as its handlers have returned: it
  // is held up until this is told, and for 3 seconds at most.
  static void Finished() noexcept;

  // While it lives, the command cannot end by itself. An interrupt is answered with a message that says for what it
  // waits, in the words of `awaited`, which is called on a thread of Windows' own.
  class Wait {
   public:
    explicit Wait(std::function<std::string()> awaited);
    ~Wait();
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;
  };
};
