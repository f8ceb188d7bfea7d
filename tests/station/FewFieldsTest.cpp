#include <algorithm>
#include <vector>

#include "station/ui/PanelDriver.h"
#include "tests/station/PluginStation.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

// Compares what is said of messages with too few fields, or too many, with what a station does.

namespace {

constexpr std::size_t kMostFields = 8;

/// The real plug-in in a station where a message of each type has something to change.
class FewFieldsTest : public PluginStation {
 protected:
  /// The fields of a whole message behind its type and project, about an object that is made for
  /// it.
  std::vector<std::string> fieldsFor(int type) {
    const std::string name = "Object " + std::to_string(++made_);
    switch (type) {
      case MessageType::eUserMessage:
        return {"bob", "anna", "hello"};
      case MessageType::eBinTransfer:
      case MessageType::eClipTransfer:
        return {"bob", "anna", "G0001"};
      case MessageType::eActionRequest:
        return {"bob", "7", "identify"};
      case MessageType::eRoomChange:
        return {text(project)};
      case MessageType::eContainerModification:
        return {text(*bins.create(name)), "2"};
      case MessageType::eFilterModification:
        return {text(filterChangedElsewhere(name)), "2"};
      case MessageType::eAddMaterial:
        return {mediaFile(name)};
      case MessageType::eRemoveMaterial:
        return {announcedFile(name)};
      default:
        return {text(editFor(type, name)),
                type == MessageType::eEditModification ? "2;0;0;;x" : "BOB"};
    }
  }

  /// How much a text makes the station do: objects changed, words shown, commands run, transfers
  /// logged.
  std::size_t doneBy(const std::string& wireText) {
    RecordedEvents seen;
    network.deliver(wireText);
    const auto isTransfer = [](const std::string& line) {
      return line.find("bin/clip for") != std::string::npos;
    };
    return seen.changes.size() + seen.notifications.size() + seen.commands.size() +
           static_cast<std::size_t>(std::ranges::count_if(seen.lines, isTransfer));
  }

  Desktop desktop;

 private:
  static std::string text(const Cookie& cookie) { return cookie.asString().str(); }

  /// A filter whose file another station has just written.
  Cookie filterChangedElsewhere(const std::string& name) {
    const Cookie cookie = *filters.create(name, "before");
    const std::string path = filters.metadataFile(cookie);
    std::string bytes = bytesOf(path);
    write(path, bytes.replace(bytes.find("before"), 6, "after"));
    return cookie;
  }

  std::string mediaFile(const std::string& name) {
    const std::string path = folder / (name + ".mov");
    write(path, "frames");
    return path;
  }

  /// A media file that only a message has named: one that the project records is not removed.
  std::string announcedFile(const std::string& name) {
    const std::string path = mediaFile(name);
    network.deliver(message(MessageType::eAddMaterial, {path}));
    return path;
  }

  /// An edit that is open; for "created" one that another station has just written, for "deleted"
  /// one whose file another station has just removed.
  Cookie editFor(int type, const std::string& name) {
    const Cookie cookie = made(name);
    if (type == MessageType::eEditCreated) {
      const Cookie other = Cookie::create(CookieTypeEdit);
      write(fileOf(other), bytesOf(fileOf(cookie)));
      return other;
    }
    EXPECT_TRUE(edits.open(cookie));
    if (type == MessageType::eEditDeleted) {
      std::filesystem::remove(fileOf(cookie));
      return cookie;
    }
    // Reading a changed file again gives the station something to tell.
    std::string bytes = bytesOf(fileOf(cookie));
    bytes.replace(bytes.find(name), name.size(), name + "'");
    if (type != MessageType::eEditModification) write(fileOf(cookie), bytes);
    return cookie;
  }

  int made_ = 0;
};

class FewFieldsOfATypeTest : public FewFieldsTest, public testing::WithParamInterface<int> {};

TEST_P(FewFieldsOfATypeTest, AreValidExactlyWhereAStationDoesSomething) {
  for (std::size_t count = 1; count <= kMostFields; ++count) {
    std::vector<std::string> fields = fieldsFor(GetParam());
    // An edit's message has one field; what follows is one too many and is not read.
    fields.insert(fields.begin(), {"d", std::to_string(GetParam()), project.asString().str()});
    fields.resize(kMostFields, "more");
    std::string wireText;
    for (std::size_t i = 0; i < count; ++i) wireText += fields[i] + kFieldSeparator;
    EXPECT_FALSE(readMessage(kFieldSeparator + wireText).valid);
    EXPECT_EQ(doneBy(kFieldSeparator + wireText), 0u) << count << " fields behind a separator";
    const bool isValid = readMessage(wireText).valid;
    EXPECT_EQ(doneBy(wireText) > 0, isValid) << count << " fields";
  }
}

INSTANTIATE_TEST_SUITE_P(Types, FewFieldsOfATypeTest, testing::Range(-1, MessageType::kLast + 2));

}  // namespace
