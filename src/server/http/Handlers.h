#pragma once

#include "server/http/Router.h"

namespace vornex::server {

// Version, logins (LoginHandlers.cpp)
Response getVersion(const Context&, const Call&, const Request&);
Response checkLogin(const Context&, const Call&, const Request&);
Response login(const Context&, const Call&, const Request&);
Response logout(const Context&, const Call&, const Request&);

// Libraries (LibraryHandlers.cpp)
Response listLibraries(const Context&, const Call&, const Request&);
Response getLibrary(const Context&, const Call&, const Request&);
Response getFCPXLibraries(const Context&, const Call&, const Request&);

// The tree of projects and groups (ProjectHandlers.cpp)
Response getProjects(const Context&, const Call&, const Request&);
Response createProject(const Context&, const Call&, const Request&);
Response updateProject(const Context&, const Call&, const Request&);
Response moveProject(const Context&, const Call&, const Request&);

// Assets (AssetHandlers.cpp)
Response createAssets(const Context&, const Call&, const Request&);
Response updateAssets(const Context&, const Call&, const Request&);
Response deleteAssets(const Context&, const Call&, const Request&);
Response searchAssets(const Context&, const Call&, const Request&);
Response getAsset(const Context&, const Call&, const Request&);

// Media files (MediaHandlers.cpp)
Response getMaster(const Context&, const Call&, const Request&);
Response getThumbnail(const Context&, const Call&, const Request&);
Response getPreview(const Context&, const Call&, const Request&);
Response locateMasters(const Context&, const Call&, const Request&);
Response locatePreviews(const Context&, const Call&, const Request&);
Response checkAccess(const Context&, const Call&, const Request&);

/// What a request does to a library.
enum class Right { read, addAssets, changeAssets };

/// The library, if the user has the right. Network users need a library that is shared and assigned to them,
/// and that takes new assets ("uploadable") or changes ("editable"). Errors: databaseNotFound,
/// libraryNotShared, noAuthority.
[[nodiscard]] Result<Library> libraryFor(const Context& context, const Call& call, Right right);

/// The same with an open database. Further errors: databaseNotFound while it is closed, databaseFailed.
[[nodiscard]] Result<Library> openLibraryFor(const Context& context, const Call& call, Right right);

/// Whether the user sees the library at all: the owner sees each, others the shared ones assigned to them.
bool mayRead(const User& user, const Library& library);

/// The request's body as a dictionary; an empty body is an empty one.
[[nodiscard]] Result<Dictionary> bodyDictionary(const Request& request);

}  // namespace vornex::server
