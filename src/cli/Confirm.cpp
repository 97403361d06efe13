#include "cli/Confirm.h"

#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "cli/DisplayText.h"
#include "foundation/Text.h"

namespace vornex::cli {

Result<void> confirm(const std::string& question, bool isSure) {
  if (isSure) return {};
  if (!::isatty(STDIN_FILENO)) {
    return failure("vornex", 0, question + " Nobody can be asked here: add --yes to do it");
  }
  std::fputs((printable(question) + " [y/N] ").c_str(), stderr);
  std::fflush(stderr);
  std::string answer;
  std::getline(std::cin, answer);
  answer = trimmedWhitespace(answer);
  if (::strcasecmp(answer.c_str(), "y") == 0 || ::strcasecmp(answer.c_str(), "yes") == 0) return {};
  return failure("vornex", 0, "nothing was done");
}

}  // namespace vornex::cli
