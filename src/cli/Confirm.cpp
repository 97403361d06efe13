#include "cli/Confirm.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "cli/DisplayText.h"

namespace vornex::cli {

Result<void> confirm(const std::string& question, bool yes) {
  if (yes) return {};
  if (isatty(STDIN_FILENO) != 1)
    return failure("vornex", 0, printable(question) + " Say --yes to do it without being asked");
  std::fputs((printable(question) + " Go on? [y/N] ").c_str(), stderr);
  std::string answer;
  std::getline(std::cin, answer);
  if (answer.starts_with('y') || answer.starts_with('Y')) return {};
  return failure("vornex", 0, "nothing was changed");
}

}  // namespace vornex::cli
