#include "cli/Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "cli/DisplayText.h"
#include "cli/Table.h"
#include "foundation/Json.h"

namespace vornex::cli {

std::size_t terminalWidth(int descriptor) {
  constexpr std::size_t kNarrowest = 20, kDefault = 80;
  winsize size{};
  if (ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return std::max<std::size_t>(size.ws_col, kNarrowest);
  }
  const char* columns = std::getenv("COLUMNS");
  const unsigned long wanted = columns ? std::strtoul(columns, nullptr, 10) : 0;
  return wanted >= kNarrowest && wanted <= 10'000 ? wanted : kDefault;
}

void writeLine(std::FILE* stream, std::string_view line) {
  std::fwrite(line.data(), 1, line.size(), stream);
  std::fputc('\n', stream);
}

void Output::record(const std::string& kind, const Dictionary& fields) const {
  if (!json_) return;
  Dictionary line{{"kind", kind}};
  line.merge(fields);
  writeLine(stdout, writeJson(line));
  // A reader at the other end of a pipe sees each record as it happens, also when this program is killed
  // later.
  std::fflush(stdout);
}

void Output::text(const std::string& line) const {
  if (!json_) writeLine(stdout, printable(line));
}

void Output::table(const Table& table) const {
  const std::size_t width = isatty(STDOUT_FILENO) == 1 ? terminalWidth(STDOUT_FILENO) : 0;
  for (const std::string& line : table.lines(width)) text(line);
}

bool flushOutput() {
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

}  // namespace vornex::cli
