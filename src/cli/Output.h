#pragma once

#include <vornex/Value.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace vornex::cli {

class Table;

/// Columns of the terminal behind the descriptor; $COLUMNS or 80 when there is none.
std::size_t terminalWidth(int descriptor);

/// Writes the line and its end. The stream remembers a failure: see flushOutput.
void writeLine(std::FILE* stream, std::string_view line);

/// Where the data of a command goes: standard output, as text for people or as JSON Lines for programs.
/// Everything else a command has to say goes to standard error.
///
/// Thread-safety: none; commands print from one thread at a time.
class Output {
 public:
  explicit Output(bool json) : json_(json) {}

  bool json() const { return json_; }

  /// One JSON object on a line of its own; "kind" says what it is. Nothing without --json.
  void record(const std::string& kind, const Dictionary& fields) const;

  /// A line for people, made printable. Nothing under --json.
  void text(const std::string& line) const;
  /// Cut to the terminal, or as wide as it is when standard output is none. Nothing under --json.
  void table(const Table& table) const;

 private:
  bool json_;
};

/// Whether everything written to standard output arrived; false on a full disk or a closed pipe.
bool flushOutput();

}  // namespace vornex::cli
