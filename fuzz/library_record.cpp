// links: vornex
#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>

#include <cstdint>

#include "foundation/PropertyList.h"

using namespace vornex;

// "library.plist" and the rows of the library lists, and below "group" a tree as "project.plist" and the
// server's answers hold it. What was read is written so that it reads as the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool isQuiet = (setLogSink([](LogLevel, const std::string&) {}), true);
  (void)isQuiet;
  auto value = parsePropertyList(std::string_view(reinterpret_cast<const char*>(data), size));
  const Dictionary* form = value ? value->ifDictionary() : nullptr;
  LibraryPtr library = form ? TQLibrary::libraryWithDictionary(*form) : nullptr;
  if (!library) return 0;
  auto row = library->libDictionary();
  if (!row || row->size() != 17) __builtin_trap();
  LibraryPtr again = TQLibrary::libraryWithDictionary(*row);
  if (!again || again->libDictionary() != row) __builtin_trap();

  ProjectPtr project = TQProject::projectWithName("root", library->dbName, kProjectTypeProject);
  project->library = library;
  library->projects.push_back(project);
  library->loadGroups(*form, project, project);
  Dictionary written;
  library->loadGroup(project, written);
  ProjectPtr copy = TQProject::projectWithDictionary(*project->projectDictionary());
  library->loadGroups(written, copy, copy);
  if (copy->descendantCount() != project->descendantCount()) __builtin_trap();
  for (const ProjectPtr& group : project->childGroups)
    if (!library->projectWithID(*group->id)) __builtin_trap();
  return 0;
}
