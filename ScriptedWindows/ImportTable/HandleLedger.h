// The books on handles: which are open, and by which call each is to be closed.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/PlainLock.h"

// Kept by what watches or scripts the calls; read by tests. May be used from any thread.
class HandleLedger {
 public:
  // How often a handle of the kind was opened, or a call that closes was made.
  std::size_t Count(const std::string& kindOrCloser) const;

  // How many of the kind are open.
  std::size_t Open(const std::string& kind) const;

  // Everything that is open: by kind, as "CreateEventW x3", or each by its name.
  std::vector<std::string> Leaks() const;
  std::vector<std::string> OpenHandles() const;

  // Handles that were closed by a call that is not theirs, or twice, or used when they were not open. A handle from
  // before the books is not judged.
  std::vector<std::string> Mistakes() const;

  // A handle's name is its kind; from the second of the kind on it is numbered ("token2").
  void Opened(const std::string& kind, const std::string& closer, const void* handle);
  // To be noted before the handle is really closed: afterwards another thread may be given the same value.
  void Closed(const std::string& closer, const void* handle);
  // For a state that is counted: start-ups and clean-ups.
  void Entered(const std::string& kind);
  void Left(const std::string& closer, const std::string& kind);

  bool Knows(const void* handle) const;  // open or closed
  bool IsOpen(const void* handle) const;
  // Its name, "null" for null; a mistake when it is not open.
  std::string Use(const void* handle);
  // The system may give the value to something else that is not watched.
  void Forget(const void* handle);

 private:
  struct Entry {
    std::string name;
    std::string kind;
    std::string closer;
    bool open;
  };

  mutable PlainLock m_lock;
  std::map<const void*, Entry> m_handles;
  std::map<std::string, std::size_t> m_counts;
  std::map<std::string, std::size_t> m_entered;
  std::vector<std::string> m_mistakes;
};
