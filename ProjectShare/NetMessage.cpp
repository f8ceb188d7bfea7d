#include "ProjectShare/NetMessage.h"

#include <cstdlib>
#include <string>
#include <string_view>

#include "host/base/Log.h"
#include "host/base/NumRange.h"
#include "host/base/Text.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iProjectShare.h"

namespace {

using Text = LightweightString<char>;

// One byte, whatever the text's encoding. UTF-8 holds it within some letters (the euro sign ends in
// it), and a text is cut there; the host refuses such names where they would be stored.
constexpr char kSeparator = '\xAC';
constexpr const char* kVersion = "d";
constexpr std::size_t kFirstPayloadField = 3;
constexpr std::size_t kUsualFields = 6;
constexpr std::size_t kUsualCookie = 64;
constexpr std::size_t kUsualHead = 160;  ///< bytes that a message holds beside its texts

/// A wire text's fields, valid as long as the text. A correctly written text gives exactly the
/// fields that were written. An empty first field is dropped unless the text is one character long.
Vector<std::string_view> split(std::string_view text) {
  Vector<std::string_view> fields;
  fields.reserve(kUsualFields);
  const std::size_t first = text.find(kSeparator);
  if (first == std::string_view::npos) return {text};
  if (first > 0 || text.size() == 1) fields.push_back(text.substr(0, first));
  std::size_t begin = first + 1;
  for (std::size_t end; (end = text.find(kSeparator, begin)) != text.npos; begin = end + 1)
    fields.push_back(text.substr(begin, end - begin));
  if (begin < text.size()) fields.push_back(text.substr(begin));
  return fields;
}

// Field by field: building the range anew puts it in order, and reports it when it was not.
EditModification copyOf(const EditModification& from) {
  EditModification copy;
  copy.type_ = from.type_;
  copy.range_ = NumRange<double>(from.range_.start, from.range_.end);
  copy.subject_ = from.subject_;
  copy.value_ = from.value_;
  return copy;
}

Text localUser() {
  iProjectShare* share = iProjectShare::instance();
  return share ? toUTF8(share->getCurrentUser()) : Text();
}

/// The cookie that a field spells. The host wants a text that ends in a zero: that of a cookie is
/// short enough to be copied without taking memory.
Cookie cookieFrom(std::string_view field) {
  char text[kUsualCookie];
  if (field.size() >= sizeof text) return Cookie(std::string(field).c_str(), false);
  text[field.copy(text, field.size())] = '\0';
  return Cookie(text, false);
}

/// A type's name in the log; null for the types that the log does not name.
const char* displayName(NetMessage::Type type) {
  switch (type) {
    case NetMessage::eEditModification:
      return "EditModification";
    case NetMessage::eEditSaved:
      return "EditSaved";
    case NetMessage::eEditDeleted:
      return "EditDeleted";
    case NetMessage::ePermissionsChange:
      return "PermissionsChange";
    case NetMessage::eRoomChange:
      return "RoomChange";
    case NetMessage::eContainerModification:
    case NetMessage::eFilterModification:  // shares the name: only the receiver tells them apart
      return "ContainerModification";
    case NetMessage::eAddMaterial:
      return "AddMaterial";
    case NetMessage::eRemoveMaterial:
      return "RemoveMaterial";
    case NetMessage::eEditCreated:
      return "EditCreated";
    default:
      return nullptr;
  }
}

}  // namespace

// Required: assertions name fixed places, which readers of logs know; not this file's lines.

NetMessage::NetMessage(Type t, const Cookie& object) : type(t), cookie(object) {
  if (t == eEditModification)
    assertionFailed("t != eEditModification", "ProjectShare/NetMessage line 46");
  init();
}

NetMessage::NetMessage(Type t, const Cookie& object, const Text& text)
    : type(t), cookie(object), data(text) {
  if (t == eEditModification)
    assertionFailed("t != eEditModification", "ProjectShare/NetMessage line 55");
  init();
}

NetMessage::NetMessage(Type t, const Text& path) : type(t), data(path) {
  if (t != eAddMaterial && t != eRemoveMaterial)
    assertionFailed("t == eAddMaterial || t == eRemoveMaterial", "ProjectShare/NetMessage line 63");
  init();
}

NetMessage::NetMessage(Type t, const Text& recipient, const Text& text)
    : type(t), data(text), target(recipient) {
  if (t != eUserMessage && t != eActionRequest)
    assertionFailed("t == eUserMessage || t == eActionRequest", "ProjectShare/NetMessage line 73");
  init();
}

NetMessage::NetMessage(Type t, const Text& recipient, const Cookie& object)
    : type(t), cookie(object), target(recipient) {
  if (t != eBinTransfer && t != eClipTransfer)
    assertionFailed("t == eBinTransfer || t == eClipTransfer", "ProjectShare/NetMessage line 83");
  init();
}

NetMessage::NetMessage(const Cookie& object, const ContainerModification& modification)
    : type(eContainerModification), cookie(object), containerModification(modification) {
  init();
}

NetMessage::NetMessage(const Cookie& edit, const EditModification& modification)
    : type(eEditModification), cookie(edit), editModification(copyOf(modification)) {
  init();
}

NetMessage::NetMessage(const Text& wireText) {
  const Fields fields = split(wireText.view());
  if (fields.empty()) return;
  if (fields[0] != kVersion) {
    LogBoth(
        "WARNING!! : Unexpected net message version. Please ensure that all machines are running "
        "the same version of Korvel software\n");
    return;
  }
  // A head without content: the type stays eNone, and receivers pass such a message over.
  if (fields.size() <= kFirstPayloadField) return;
  // No number reads as 0. An unknown one is kept: the receiver reports it.
  type = static_cast<Type>(std::strtol(std::string(fields[1]).c_str(), nullptr, 10));
  projectCookie = cookieFrom(fields[2]);
  readFields(fields);
}

void NetMessage::init() { projectCookie = get_project_cookie(); }

void NetMessage::readFields(const Fields& fields) {
  switch (type) {
    case eEditModification:
      return readModification(fields);
    case ePermissionsChange:
      return readPermissions(fields);
    case eContainerModification:
    case eFilterModification:
      return readContainer(fields);
    case eEditSaved:
    case eEditDeleted:
    case eProjdbRecChange:
    case eRoomChange:
    case eEditCreated:
      cookie = cookieFrom(fields[3]);
      return;
    case eAddMaterial:
    case eRemoveMaterial:
      data = Text(fields[3]);
      return;
    case eUserMessage:
    case eActionRequest:
      // All three or none: a text with too few fields names neither sender nor recipient.
      if (fields.size() < 6) return;
      source = Text(fields[3]);
      target = Text(fields[4]);
      data = Text(fields[5]);
      return;
    case eBinTransfer:
    case eClipTransfer:
      source = Text(fields[3]);
      // Required: the cookie is read from the target's field; stations in use do it so.
      if (fields.size() > 4) cookie = cookieFrom(fields[4]);
      return;
    default:
      assertionFailed("false", "ProjectShare/NetMessage line 197");
  }
}

void NetMessage::readModification(const Fields& fields) {
  cookie = cookieFrom(fields[3]);
  if (fields.size() < 5) return assertionFailed("false", "ProjectShare/NetMessage line 149");
  editModification = copyOf(EditModification(Text(fields[4])));
}

void NetMessage::readPermissions(const Fields& fields) {
  cookie = cookieFrom(fields[3]);
  if (fields.size() < 5) return assertionFailed("false", "ProjectShare/NetMessage line 142");
  data = Text(fields[4]);
}

void NetMessage::readContainer(const Fields& fields) {
  cookie = cookieFrom(fields[3]);
  if (fields.size() < 5) return assertionFailed("false", "ProjectShare/NetMessage line 166");
  containerModification = ContainerModification(Text(fields[4]));
  if (containerModification.valid_) return;
  type = eNone;
  assertionFailed("false", "ProjectShare/NetMessage line 162");
}

LightweightString<char> NetMessage::asString() const {
  // One allocation for most messages; the separator also ends the last field.
  std::string text;
  text.reserve(kUsualHead + data.size() + target.size());
  const auto append = [&text](const Text& field) { (text += field.view()) += kSeparator; };
  (text += kVersion) += kSeparator;
  (text += std::to_string(static_cast<std::int32_t>(type))) += kSeparator;
  append(projectCookie.asString(false));
  switch (type) {
    case eEditModification:
      append(cookie.asString(false));
      append(editModification.asString());
      break;
    case ePermissionsChange:
      append(cookie.asString(false));
      append(data);
      break;
    case eContainerModification:
    case eFilterModification:
      append(cookie.asString(false));
      (text += std::to_string(containerModification.value_)) += kSeparator;
      break;
    case eAddMaterial:
    case eRemoveMaterial:
      append(data);
      break;
    case eUserMessage:
    case eActionRequest:
      append(localUser());
      append(target);
      append(data);
      break;
    case eBinTransfer:
    case eClipTransfer:
      // Required: the target goes before the cookie, though a reader takes field 4 for the cookie.
      append(localUser());
      append(target);
      append(cookie.asString(false));
      break;
    case eEditSaved:
    case eEditDeleted:
    case eRoomChange:
    case eEditCreated:
      append(cookie.asString(false));
      break;
    default:  // eProjdbRecChange too: nobody announces it, but every station reads it
      assertionFailed("false", "ProjectShare/NetMessage line 293");
      append(cookie.asString(false));
  }
  return Text(text);
}

void NetMessage::log(LightweightString<char> heading) const {
  LogBoth("%s :\n", heading);
  LogBoth("{\n");
  LogBoth("   Project : %s\n", projectCookie.asString(false));
  if (!source.empty()) LogBoth("   Source  : %s\n", source);
  if (const char* name = displayName(type)) {
    LogBoth("   Type    : %s\n", name);
    logDetails();
  }
  LogBoth("}\n");
}

void NetMessage::logDetails() const {
  const bool isMaterial = type == eAddMaterial || type == eRemoveMaterial;
  if (!isMaterial) LogBoth("   Cookie  : %s\n", cookie.asString(false));
  if (isMaterial || type == ePermissionsChange) LogBoth("   Data    : %s\n", data);
  if (type == eEditModification) LogBoth("   Details : %s\n", editModification.asString());
  if (type == eContainerModification || type == eFilterModification)
    LogBoth("   Details : %s\n", containerModification.asString());
}
