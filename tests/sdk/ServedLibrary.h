#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <vornex/Queue.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQUser.h>

#include <atomic>
#include <future>

#include "foundation/Json.h"
#include "support/FakeServer.h"
#include "support/TemporaryFolder.h"

namespace vornex::testing {

/// A library whose server answers every request with the same JSON and keeps what it was sent.
class ServedLibrary : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("VORNEX_ROOT", (folder_ / "root").c_str(), 1);
    useLibrary(kLibraryTypeLocal);
  }

  void useLibrary(std::int64_t type) {
    UserPtr user = TQUser::userWithID("me", "Me", kUserTypeLocalOwner, "digest");
    ConnectionPtr connection = TQConnection::connectionWithAddress("127.0.0.1", server_.port(), user);
    library_ = TQLibrary::libraryWithName("Library", "", type, false, true, true, folder_.path(),
                                          folder_.path(), connection);
    library_->dbName = "db";
  }

  void answer(std::string json, int status = 200) {
    std::lock_guard lock(mutex_);
    reply_ = FakeReply::json(std::move(json), status);
  }

  /// The server's own form of a failure.
  void refuse(std::int64_t code) {
    answer(R"({"Status": {"code": )" + std::to_string(code) + R"(, "msg": "no", "domain": "SERVER"}})", 400);
  }

  std::size_t requestCount() const { return server_.requests().size(); }
  std::string lastTarget() const {
    std::vector<FakeRequest> requests = server_.requests();
    return requests.empty() ? "" : requests.back().method + " " + requests.back().target;
  }
  Value lastBody() const {
    std::vector<FakeRequest> requests = server_.requests();
    return requests.empty() ? Value() : parseJson(requests.back().body).value_or(Value());
  }
  /// The first item of the latest request.
  Value lastItem() const {
    Value body = lastBody();
    const Value* items = body.find("items");
    return items && items->ifArray() && !items->ifArray()->empty() ? items->ifArray()->front() : Value();
  }

  /// Starts an operation and pumps the main queue until it calls back; gives the arguments of the callback.
  template <typename... Arguments, typename Start>
  std::tuple<Arguments...> await(Start start) {
    std::promise<std::tuple<Arguments...>> promise;
    std::future<std::tuple<Arguments...>> result = promise.get_future();
    start([&promise](Arguments... arguments) { promise.set_value({std::move(arguments)...}); });
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (result.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error("no callback came");
      pollfd descriptor{MainQueue::shared().fileDescriptor(), POLLIN, 0};
      ::poll(&descriptor, 1, 5);
      MainQueue::shared().runPending();
    }
    return result.get();
  }

  ProjectPtr addRoot(const std::string& id, const std::string& name) {
    ProjectPtr project = TQProject::projectWithID(id, name, library_->dbName, kProjectTypeProject);
    project->library = library_;
    project->rootProject = project;
    library_->projects.push_back(project);
    return project;
  }

  ProjectPtr addBelow(const ProjectPtr& parent, const std::string& id, const std::string& name) {
    ProjectPtr group = TQProject::projectWithID(id, name, library_->dbName, kProjectTypeGroup);
    group->library = library_;
    group->rootProject = parent->rootProject;
    group->parent = parent;
    parent->childGroups.push_back(group);
    return group;
  }

  TemporaryFolder folder_;
  std::mutex mutex_;
  FakeReply reply_ = FakeReply::json("{}");
  /// Happens once, before the next answer.
  std::function<void()> meanwhile_;
  FakeServer server_{[this](const FakeRequest&) {
    if (auto happen = std::exchange(meanwhile_, nullptr)) happen();
    std::lock_guard lock(mutex_);
    return reply_;
  }};
  LibraryPtr library_;
};

inline std::int64_t codeOf(const TQErrorPtr& error) {
  return error ? error->code() : 0;
}

}  // namespace vornex::testing
