// links: vornex
#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"

using namespace vornex;

/// Removed when the program ends.
struct PackageFolder {
  PackageFolder() {
    if (!::mkdtemp(path.data())) std::abort();
    std::filesystem::create_directory(path + "/Project");
    std::filesystem::create_directory(path + "/FCPXLibrary");
  }
  ~PackageFolder() { std::filesystem::remove_all(path); }

  std::string path = (std::filesystem::temp_directory_path() / "vornex-fuzz-XXXXXX").string();
};

static const std::string& packageFolder() {
  static const PackageFolder folder;
  return folder.path;
}

/// A library without a tree takes over the file's and writes it again: nothing of it is lost, identifiers
/// that occur twice included, or the file stays as it was.
static void saveFromFile(const LibraryPtr& library, const Value* nodes) {
  const std::string path = packageFolder() + "/Project/project.plist";
  const Dictionary content = {{"projects", nodes ? *nodes : Value()}, {"hash", "h"}};
  if (!writePropertyListFile(path, content)) return;
  const auto before = readDictionaryFile(path);
  if (!before) return;
  library->packageFolder = packageFolder();
  library->projects.clear();
  const bool isSaved = library->saveProjects();
  const auto after = readDictionaryFile(path);
  if (!after || (!isSaved && *after != *before)) __builtin_trap();
  if (!isSaved) return;
  for (const ProjectPtr& project : library->projects)
    if (!library->projectWithID(*project->id)) __builtin_trap();
  const auto read = library->projects.size();
  if (after->find("projects")->ifArray()->size() != read) __builtin_trap();
  if (before->find("projects")->ifArray()->size() != read) __builtin_trap();
}

static std::size_t countFCPXNodes(const Dictionary& content) {
  std::size_t count = 0;
  for (const Value& record : coerce::array(content.find("fcpxlibraries"))) {
    ++count;
    for (const Value& event : coerce::array(record.find("events")))
      count += 1 + coerce::array(event.find("multicams")).size();
  }
  return count;
}

/// The same of the Final Cut Pro X libraries.
static void saveFCPXFromFile(const LibraryPtr& library, const Value* records) {
  const std::string path = packageFolder() + "/FCPXLibrary/fcpxlibrary.plist";
  if (!writePropertyListFile(path, Dictionary{{"fcpxlibraries", records ? *records : Value()}})) return;
  const auto before = readDictionaryFile(path);
  if (!before) return;
  library->packageFolder = packageFolder();
  const bool isSaved = library->saveFCPXLibraryPlist();
  const auto after = readDictionaryFile(path);
  if (!after || (!isSaved && *after != *before)) __builtin_trap();
  if (isSaved && countFCPXNodes(*after) != countFCPXNodes(*before)) __builtin_trap();
}

// "library.plist" and the rows of the library lists, and below "group" and "fcpxlibraries" trees as their
// files in the package folder and the server's answers hold them. What was read is written so that it reads
// as the same.
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
  saveFromFile(library, form->find("group"));
  saveFCPXFromFile(library, form->find("fcpxlibraries"));
  return 0;
}
