#include "cli/Arguments.h"

#include <CLI/CLI.hpp>
#include <sstream>

namespace vornex::cli {
namespace {

const CLI::Range kPorts(0, 65535);

/// Gives the parent a subcommand that, when it is on the command line, is what the arguments ask for.
template <typename C>
std::pair<CLI::App*, std::shared_ptr<C>> addCommand(CLI::App& parent, Arguments& arguments,
                                                    const std::string& name, const std::string& description) {
  auto command = std::make_shared<C>();
  CLI::App* app = parent.add_subcommand(name, description);
  app->callback([command, &arguments] { arguments.command = *command; });
  return {app, command};
}

void addLibraryOption(CLI::App* app, OptionalString& library) {
  app->add_option("-L,--library", library,
                  "Library, by name, path or database name (needed if there are several)");
}

void addServiceCommands(CLI::App& app, Arguments& arguments) {
  const auto [serve, options] = addCommand<ServeCommand>(app, arguments, "serve", "Start the service");
  serve->add_flag("--foreground", options->foreground,
                  "Become the service instead of starting it in the background");
  addCommand<StopCommand>(app, arguments, "stop", "End the service");
  addCommand<StatusCommand>(app, arguments, "status", "Say whether the service runs, and where");
}

/// The same for commands that are about one library: it may be said without the option's name.
void addLibraryArgument(CLI::App* app, OptionalString& library) {
  app->add_option("-L,--library,LIBRARY", library,
                  "Name, path or database name (needed if there are several)");
}

void addYesFlag(CLI::App* app, bool& yes) {
  app->add_flag("-y,--yes", yes, "Do not ask");
}

void addLibraryLifeCommands(CLI::App& library, Arguments& arguments) {
  const auto [import, importing] = addCommand<LibraryImportCommand>(
      library, arguments, "import", "Take in package folders that were moved or come from another computer");
  import->add_option("FOLDER", importing->places, "Package folders")->required();
  import->add_flag("--force", importing->force, "Take over a library that another computer has locked");
  addYesFlag(import, importing->yes);
  const auto [rename, naming] =
      addCommand<LibraryRenameCommand>(library, arguments, "rename", "Give a library another name");
  rename->add_option("LIBRARY", naming->library, "Name, path or database name")->required();
  rename->add_option("NAME", naming->name, "The new name; its folder keeps its own")->required();
  const auto [remove, removal] = addCommand<LibraryDeleteCommand>(
      library, arguments, "delete", "Take a library out of the list; its folder stays, with its database");
  remove->add_option("LIBRARY", removal->library, "Name, path or database name")->required();
  remove->add_flag("--everything", removal->everything, "Remove its database and all its files, too");
  addYesFlag(remove, removal->yes);
  const auto [backup, saved] = addCommand<LibraryBackupCommand>(
      library, arguments, "backup", "Copy the database of a library into its folder");
  addLibraryArgument(backup, saved->library);
  const auto [restore, restored] = addCommand<LibraryRestoreCommand>(
      library, arguments, "restore", "Go back to the database that was last backed up");
  addLibraryArgument(restore, restored->library);
  addYesFlag(restore, restored->yes);
  const auto [reload, reloaded] = addCommand<LibraryReloadCommand>(
      library, arguments, "reload", "Read the list of libraries again, and say which of them answer");
  reload->add_option("-L,--library,LIBRARY", reloaded->library,
                     "Only this one, by name, path or database name");
}

void addLibraryCommands(CLI::App& app, Arguments& arguments) {
  CLI::App* library = app.add_subcommand("library", "Create, look at, move and delete libraries");
  library->require_subcommand(1);
  const auto [create, creation] =
      addCommand<LibraryCreateCommand>(*library, arguments, "create", "Create local libraries");
  create
      ->add_option("PLACE", creation->places, "Folder to create, or a plain name for a folder below ~/Vornex")
      ->required();
  create->add_option("--name", creation->name, "Name of the library (default: that of its folder)");
  create->add_option("--description", creation->description, "Description of the library");
  create->callback([&arguments, command = creation] {
    if (command->name && command->places.size() > 1)
      throw CLI::ValidationError("--name", "names one library only");
    arguments.command = *command;
  });
  addCommand<LibraryListCommand>(*library, arguments, "list", "List the known libraries");
  const auto [show, shown] =
      addCommand<LibraryShowCommand>(*library, arguments, "show", "Show a library and what it holds");
  addLibraryArgument(show, shown->library);
  addLibraryLifeCommands(*library, arguments);
}

constexpr const char* kNodeHelp = "\"name\", \"name/group/group\" or an identifier";

void addProjectMoveCommand(CLI::App& project, Arguments& arguments) {
  const auto [move, command] = addCommand<ProjectMoveCommand>(
      project, arguments, "move", "Move a project or group among its siblings, or a group elsewhere");
  move->add_option("PROJECT", command->path, kNodeHelp)->required();
  CLI::Option* into =
      move->add_option("--into", command->into, "New parent of the group, named the same way");
  CLI::Option* to = move->add_option(
      "--to", command->position, "Put it before the node that is there now, from 0 (default: to the end)");
  to->check(CLI::NonNegativeNumber);
  move->callback([&arguments, into, to, moving = command] {
    if (into->empty() && to->empty()) throw CLI::RequiredError("--into or --to");
    arguments.command = *moving;
  });
  addLibraryOption(move, command->library);
}

void addProjectCommands(CLI::App& app, Arguments& arguments) {
  CLI::App* project =
      app.add_subcommand("project", "Add, list and change the projects and groups of a library");
  project->require_subcommand(1);
  const auto [add, addition] =
      addCommand<ProjectAddCommand>(*project, arguments, "add", "Add a project, or a group");
  add->add_option("PROJECT", addition->path, "\"name\", or \"name/group/group\"; missing levels are made")
      ->required();
  addLibraryOption(add, addition->library);
  const auto [group, grouping] =
      addCommand<ProjectGroupCommand>(*project, arguments, "group", "Add a group to a project or group");
  group->add_option("PARENT", grouping->parent, kNodeHelp)->required();
  group->add_option("NAME", grouping->name, "Name of the group; it may hold slashes")->required();
  addLibraryOption(group, grouping->library);
  const auto [list, listing] =
      addCommand<ProjectListCommand>(*project, arguments, "list", "Show the project tree");
  addLibraryOption(list, listing->library);
  const auto [rename, renaming] =
      addCommand<ProjectRenameCommand>(*project, arguments, "rename", "Rename a project or group");
  rename->add_option("PROJECT", renaming->path, kNodeHelp)->required();
  rename->add_option("NAME", renaming->name, "The new name; it may hold slashes")->required();
  addLibraryOption(rename, renaming->library);
  addProjectMoveCommand(*project, arguments);
  const auto [remove, removal] = addCommand<ProjectRemoveCommand>(
      *project, arguments, "remove", "Remove a group, or a project that holds no assets");
  remove->add_option("PROJECT", removal->path, kNodeHelp)->required();
  addYesFlag(remove, removal->yes);
  addLibraryOption(remove, removal->library);
}

/// Only copies can be compared.
void requireCopies(const ImportCommand& command) {
  bool copies = !command.reference || command.target;
  if (command.verify && !copies)
    throw CLI::ValidationError("--verify", "there is no copy to compare; name a --target");
}

void addImportCommand(CLI::App& app, Arguments& arguments) {
  const auto [subcommand, command] =
      addCommand<ImportCommand>(app, arguments, "import", "Import files, and every file below folders");
  subcommand->add_option("PATH", command->paths, "Files and folders")->required();
  addLibraryOption(subcommand, command->library);
  subcommand->add_option("-P,--project", command->project,
                         "Project, by name or as \"name/group/group\" (needed if there are several)");
  CLI::Option* reference = subcommand->add_flag("--reference", command->reference,
                                                "Leave the files where they are and keep links to them");
  subcommand
      ->add_option(
          "--target", command->target,
          "With --reference: copy the files to this folder first, link to the copies; the folder of a "
          "RED clip becomes one asset only so")
      ->needs(reference);
  subcommand->add_option("--tags", command->tags, "Tags for every file, separated by commas")
      ->delimiter(',')
      ->allow_extra_args(false);
  subcommand->add_option("--importer", command->importer, "Who imports, as kept with every file");
  subcommand->add_flag("--verify", command->verify,
                       "Compare every copy with its file, read back from the disk, and keep its digest");
  subcommand->add_flag("--resume", command->resume,
                       "Skip what the library holds already, judged by path, size and modification time");
  subcommand->add_flag("--hidden", command->hidden, "Take hidden files and folders too");
  subcommand->callback([command = command, &arguments] {
    requireCopies(*command);
    arguments.command = *command;
  });
}

void addSearchCommand(CLI::App& app, Arguments& arguments) {
  const auto [search, command] = addCommand<SearchCommand>(app, arguments, "search", "Find assets");
  search->add_option(
      "TEXT", command->text,
      "Words and \"quoted phrases\"; AND or OR between words, but not between two phrases; nothing "
      "finds every asset");
  const auto more = std::make_shared<std::vector<std::string>>();
  search->add_option("WORDS", *more, "More words, as if they stood in TEXT");
  search->callback([&arguments, command = command, more] {
    for (const std::string& word : *more) command->text += " " + word;
    arguments.command = *command;
  });
  search->add_option("--type", command->types, "Only assets of these types, separated by commas")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->check(CLI::IsMember({"video", "audio", "image", "document", "extra"}));
  addLibraryOption(search, command->library);
  search->add_option("--page", command->page, "Page of the result, from 0")->check(CLI::NonNegativeNumber);
  search->add_option("--limit", command->limit, "Assets a page")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  search->add_option("--sort", command->sort, "Field to sort by, for example name, filesize or importdate");
  search->add_flag("--descending", command->descending, "Sort downwards")->needs("--sort");
  search->add_flag("--trash", command->trash, "Search the trash instead");
}

/// What every command on some assets takes, after its own arguments.
void addAssetArguments(CLI::App* app, std::vector<std::string>& ids, OptionalString& library) {
  app->add_option("ID", ids, "Identifiers of assets")->required();
  addLibraryOption(app, library);
}

void addAssetTagCommand(CLI::App& asset, Arguments& arguments) {
  const auto [tag, tagging] =
      addCommand<AssetTagCommand>(asset, arguments, "tag", "Change the tags of assets");
  const auto addTags = [tag = tag](const std::string& name, auto& tags, const std::string& description) {
    return tag->add_option(name, tags, description)->delimiter(',')->allow_extra_args(false);
  };
  CLI::Option* add = addTags("--add", tagging->add, "Tags to add, separated by commas");
  CLI::Option* remove = addTags("--remove", tagging->remove, "Tags to take away");
  CLI::Option* set = addTags("--set", tagging->set, "Tags to have instead of all others");
  CLI::Option* clear =
      tag->add_flag("--clear", tagging->clear, "Take all tags away")->excludes(set)->excludes(remove);
  tag->callback([=, &arguments, command = tagging] {
    if (add->empty() && remove->empty() && set->empty() && clear->empty())
      throw CLI::RequiredError("--add, --remove, --set or --clear");
    if (command->clear) command->set.emplace();
    arguments.command = *command;
  });
  addAssetArguments(tag, tagging->ids, tagging->library);
}

void addAssetCommands(CLI::App& app, Arguments& arguments) {
  CLI::App* asset = app.add_subcommand("asset", "Look at assets, open them, and change what is said of them");
  asset->require_subcommand(1);
  const auto [show, command] =
      addCommand<AssetShowCommand>(*asset, arguments, "show", "Show everything about an asset");
  show->add_option("ID", command->id, "Identifier of the asset")->required();
  addLibraryOption(show, command->library);
  const auto [open, opened] =
      addCommand<AssetOpenCommand>(*asset, arguments, "open", "Open files with the desktop's programs");
  open->add_flag("--path", opened->path, "Print where the files are instead");
  addAssetArguments(open, opened->ids, opened->library);
  addAssetTagCommand(*asset, arguments);
  const auto [label, labelling] =
      addCommand<AssetLabelCommand>(*asset, arguments, "label", "Give assets a colour label");
  label->add_option("COLOR", labelling->color, "Name of the colour, or none")
      ->required()
      ->check(CLI::IsMember({"none", "red", "orange", "yellow", "green", "blue", "purple", "gray"}));
  addAssetArguments(label, labelling->ids, labelling->library);
  const auto [rate, rated] = addCommand<AssetRateCommand>(*asset, arguments, "rate", "Give assets stars");
  rate->add_option("STARS", rated->rating, "From 0 to 5")->required()->check(CLI::Range(0, 5));
  addAssetArguments(rate, rated->ids, rated->library);
  const auto [flag, flagging] = addCommand<AssetFlagCommand>(*asset, arguments, "flag", "Flag assets");
  flag->add_flag("--off", flagging->off, "Take the flag away");
  addAssetArguments(flag, flagging->ids, flagging->library);
}

}  // namespace

std::variant<Arguments, EarlyEnd> parseArguments(int count, const char* const* values) {
  Arguments arguments;
  CLI::App app("Keeps libraries of video, audio, image and document files.", "vornex");
  app.set_version_flag("--version", "vornex " VORNEX_VERSION);
  app.fallthrough();
  app.require_subcommand(1);
  app.add_option("--root", arguments.root, "Folder of the service's own data (default: $VORNEX_ROOT)");
  app.add_option("--port", arguments.port, "TCP port of a service that is to be started; 0: any free port")
      ->envname("VORNEX_PORT")
      ->check(kPorts)
      ->capture_default_str();
  app.add_flag("--json", arguments.json, "Print JSON Lines, and nothing but data, on standard output");
  app.add_flag("-v,--verbose", arguments.verbose, "Show the SDK's log lines on standard error");
  app.footer("Commands start the service when it does not run. Exit codes: 0 done, 1 failed, 2 wrong usage.");
  addServiceCommands(app, arguments);
  addLibraryCommands(app, arguments);
  addProjectCommands(app, arguments);
  addImportCommand(app, arguments);
  addSearchCommand(app, arguments);
  addAssetCommands(app, arguments);
  try {
    app.parse(count, values);
  } catch (const CLI::ParseError& error) {
    std::ostringstream output, errors;
    const bool informative = app.exit(error, output, errors) == 0;
    return informative ? EarlyEnd{output.str(), 0} : EarlyEnd{errors.str(), 2};
  }
  return arguments;
}

}  // namespace vornex::cli
