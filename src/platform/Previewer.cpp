#include "platform/Previewer.h"

#include <gio/gio.h>
#include <vornex/Log.h>

#include <cstdlib>

#include "foundation/Files.h"
#include "platform/ContainedMedia.h"
#include "platform/Processes.h"

namespace vornex {

namespace {

constexpr std::chrono::seconds kTimeLimit{20};

struct GFree {
  void operator()(void* memory) const { g_free(memory); }
};
using GText = std::unique_ptr<char, GFree>;

std::vector<std::string> thumbnailerFolders() {
  std::vector<std::string> folders{appendPathComponent(g_get_user_data_dir(), "thumbnailers")};
  for (const gchar* const* folder = g_get_system_data_dirs(); *folder; ++folder) {
    folders.push_back(appendPathComponent(*folder, "thumbnailers"));
  }
  return folders;
}

/// The command line of a thumbnailer entry that handles the type and is installed; absent when it does not.
OptionalString commandFor(const std::string& entryPath, const std::string& mime) {
  constexpr const char* kGroup = "Thumbnailer Entry";
  std::unique_ptr<GKeyFile, void (*)(GKeyFile*)> entry(g_key_file_new(), g_key_file_unref);
  if (!g_key_file_load_from_file(entry.get(), entryPath.c_str(), G_KEY_FILE_NONE, nullptr))
    return std::nullopt;
  GText command(g_key_file_get_string(entry.get(), kGroup, "Exec", nullptr));
  GText needed(g_key_file_get_string(entry.get(), kGroup, "TryExec", nullptr));
  std::unique_ptr<gchar*, void (*)(gchar**)> types(
      g_key_file_get_string_list(entry.get(), kGroup, "MimeType", nullptr, nullptr), g_strfreev);
  if (!command || !types || (needed && !findProgram(needed.get()))) return std::nullopt;
  bool handles = g_strv_contains(types.get(), mime.c_str());
  return handles ? OptionalString(command.get()) : std::nullopt;
}

/// The commands of all thumbnailers for the type; the user's own come first.
std::vector<std::string> commandsFor(const std::string& mime) {
  std::vector<std::string> commands;
  for (const std::string& folder : thumbnailerFolders()) {
    std::error_code error;
    for (std::filesystem::directory_iterator item(folder, error), end; !error && item != end;
         item.increment(error)) {
      if (item->path().extension() != ".thumbnailer") continue;
      if (auto command = commandFor(item->path().string(), mime)) commands.push_back(*command);
    }
  }
  return commands;
}

std::string expanded(const std::string& argument, const std::string& input, const std::string& uri,
                     const std::string& output, int size) {
  std::string result;
  for (std::size_t i = 0; i < argument.size(); ++i) {
    if (argument[i] != '%' || i + 1 == argument.size()) {
      result += argument[i];
      continue;
    }
    switch (argument[++i]) {
      case 'i':
        result += input;
        break;
      case 'u':
        result += uri;
        break;
      case 'o':
        result += output;
        break;
      case 's':
        result += std::to_string(size);
        break;
      default:
        result += argument[i];
        break;
    }
  }
  return result;
}

/// A folder of our own for the output, removed at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = appendPathComponent(g_get_tmp_dir(), "vornex-preview-XXXXXX");
    if (mkdtemp(pattern.data())) path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code error;
    if (!path_.empty()) std::filesystem::remove_all(path_, error);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

Result<std::vector<Image>> runThumbnailer(const std::string& command, const std::string& path,
                                          const std::vector<int>& bounds) {
  TemporaryFolder folder;
  if (folder.path().empty()) return failure("preview", errno, "cannot make a temporary folder");
  gchar** words = nullptr;
  if (!g_shell_parse_argv(command.c_str(), nullptr, &words, nullptr)) {
    return failure("preview", 0, "malformed thumbnailer: " + command);
  }
  std::unique_ptr<gchar*, void (*)(gchar**)> owned(words, g_strfreev);
  std::error_code error;
  std::string absolute = std::filesystem::absolute(path, error).string();
  if (error) return failure("preview", error.value(), "cannot find " + path);
  GText uri(g_filename_to_uri(absolute.c_str(), nullptr, nullptr));
  std::string output = appendPathComponent(folder.path(), "preview.png");
  std::vector<std::string> arguments;
  for (gchar** word = words; *word; ++word) {
    arguments.push_back(expanded(*word, absolute, uri ? uri.get() : "", output, bounds.front()));
  }
  std::string program = arguments.front();
  arguments.erase(arguments.begin());

  ProcessOptions options;
  options.timeLimit = kTimeLimit;
  auto ended = runContained(program, arguments, options);
  if (!ended) return failure("preview", ended.error().code, ended.error().message);
  if (ended->timedOut) return failure("preview", ETIMEDOUT, program + " took too long for " + path);
  if (!ended->succeeded()) return failure("preview", ended->exitStatus, program + " cannot show " + path);
  return contained::loadThumbnails(output, bounds);
}

}  // namespace

Result<std::vector<Image>> previewImages(const std::string& path, const std::vector<int>& bounds) {
  auto mime = contained::mimeType(path);
  if (!mime) return tl::unexpected(mime.error());
  if (mime->starts_with("video/") || mime->starts_with("audio/")) {
    return failure("preview", 0, path + " is sound or moving pictures: " + *mime);
  }
  auto images = contained::loadThumbnails(path, bounds);
  // What a decoder died of is not given to another one.
  if (images || images.error().domain == "decoder") return images;
  for (const std::string& command : commandsFor(*mime)) {
    auto shown = runThumbnailer(command, path, bounds);
    if (shown) return shown;
    logLine(LogLevel::debug, shown.error().message);
  }
  return images;
}

}  // namespace vornex
