#include "ScriptedWindows/Complaint.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

std::atomic<ComplaintHandler> g_handler = nullptr;

}  // namespace

void SetComplaintHandler(ComplaintHandler handler) { g_handler = handler; }

void Complain(const std::string& complaint, std::source_location where) {
  if (const ComplaintHandler handler = g_handler; handler != nullptr)
    return handler(where.file_name(), static_cast<int>(where.line()), complaint);
  std::fprintf(stderr, "%s:%lu: %s\n", where.file_name(), static_cast<unsigned long>(where.line()), complaint.c_str());
  std::abort();
}
