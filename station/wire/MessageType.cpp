#include "station/wire/MessageType.h"

#include <algorithm>

#include "station/wire/MessageFields.h"

namespace korvel {

constexpr WireField kCookieField{"cookie", &MessageFields::cookie, "--cookie",
                                 "the object concerned"};
constexpr WireField kModificationField{"modification", &MessageFields::modification, "--data",
                                       "the change in its text form"};
constexpr WireField kDataField{"data", &MessageFields::data, "--data",
                               "the path, words or command"};
constexpr WireField kOwnerField{"data", &MessageFields::data, "--data", "the owner"};
constexpr WireField kContainerField{"container", &MessageFields::container, "--data",
                                    "the container value"};
constexpr WireField kSourceField{"source", &MessageFields::source, nullptr, nullptr};
constexpr WireField kTargetField{"target", &MessageFields::target, "--target", "whom it is for"};
constexpr WireField kMachineField{"target", &MessageFields::target, "--target",
                                  "the machine's number"};
constexpr WireField kTransferTargetField{"target", &MessageFields::target, "--target",
                                         "whom it is for"};
constexpr WireField kTransferCookieField{"cookie", &MessageFields::cookie, "--cookie",
                                         "the object concerned"};

namespace {

using Layout = decltype(MessageType::layout);
using Shown = decltype(MessageType::shown);

constexpr Layout kObject{&kCookieField};
constexpr Layout kMaterial{&kDataField};
constexpr Layout kContainer{&kCookieField, &kContainerField};
constexpr Layout kTransfer{&kSourceField, &kTransferTargetField, &kTransferCookieField};

constexpr Shown kObjectShown{{{"", &kCookieField}}};
constexpr Shown kMaterialShown{{{"", &kDataField}}};
constexpr Shown kContainerShown{{{"", &kCookieField}, {"  ", &kContainerField}}};
constexpr Shown kTransferShown{
    {{"", &kSourceField}, {" to ", &kTransferTargetField}, {": ", &kTransferCookieField}}};

constexpr const char* kTransferFewer = "stations log what there is of them";

// Required of stations with too few fields: type 5 is acted on with empty permissions, type 15
// with the value 0, and the transfers are logged with what there is.
constexpr MessageType kTypes[] = {
    {MessageType::eEditModification,
     "EditModification",
     {&kCookieField, &kModificationField},
     2,
     "stations report \"false\" (NetMessage line 149) and read an empty modification, which "
     "changes "
     "nothing",
     {{{"", &kCookieField}, {"  ", &kModificationField}}}},
    {MessageType::eEditSaved, "EditSaved", kObject, 1, nullptr, kObjectShown},
    {MessageType::eEditDeleted, "EditDeleted", kObject, 1, nullptr, kObjectShown},
    {MessageType::eProjdbRecChange, "ProjdbRecChange", kObject, 1, nullptr, kObjectShown},
    {MessageType::ePermissionsChange,
     "PermissionsChange",
     {&kCookieField, &kOwnerField},
     1,
     "stations report \"false\" (NetMessage line 142) and take empty permissions",
     {{{"", &kCookieField}, {"  owner ", &kOwnerField}}}},
    {MessageType::eRoomChange, "RoomChange", kObject, 1, nullptr, kObjectShown},
    {MessageType::eContainerModification, "ContainerModification", kContainer, 2,
     "stations report \"false\" (NetMessage line 166) and do nothing", kContainerShown},
    {MessageType::eAddMaterial, "AddMaterial", kMaterial, 1, nullptr, kMaterialShown},
    {MessageType::eRemoveMaterial, "RemoveMaterial", kMaterial, 1, nullptr, kMaterialShown},
    {MessageType::eUserMessage,
     "UserMessage",
     {&kSourceField, &kTargetField, &kDataField},
     3,
     "stations read none of them and deliver no words",
     {{{"", &kSourceField}, {" to ", &kTargetField}, {": ", &kDataField}}}},
    {MessageType::eBinTransfer, "BinTransfer", kTransfer, 1, kTransferFewer, kTransferShown},
    {MessageType::eClipTransfer, "ClipTransfer", kTransfer, 1, kTransferFewer, kTransferShown},
    {MessageType::eActionRequest,
     "ActionRequest",
     {&kSourceField, &kMachineField, &kDataField},
     3,
     "stations read none of them and run no command",
     {{{"", &kSourceField}, {" to machine ", &kMachineField}, {": ", &kDataField}}}},
    {MessageType::eEditCreated, "EditCreated", kObject, 1, nullptr, kObjectShown},
    {MessageType::eFilterModification, "FilterModification", kContainer, 1,
     "stations report \"false\" (NetMessage line 166) and read all filters again", kContainerShown},
};
static_assert(std::size(kTypes) == MessageType::kLast - MessageType::kFirst + 1);

}  // namespace

std::span<const WireField* const> MessageType::fields() const {
  const auto end = std::find(layout.begin(), layout.end(), nullptr);
  return {layout.data(), static_cast<std::size_t>(end - layout.begin())};
}

bool MessageType::has(const WireField& field) const {
  return std::ranges::find(layout, &field) != layout.end();
}

std::span<const MessageType> messageTypes() { return kTypes; }

const MessageType* messageType(int number) {
  if (number < MessageType::kFirst || number > MessageType::kLast) return nullptr;
  return &kTypes[number - MessageType::kFirst];
}

const char* messageTypeName(int number) {
  if (number == MessageType::eNone) return "None";
  const MessageType* const type = messageType(number);
  return type ? type->name : "unknown";
}

}  // namespace korvel
