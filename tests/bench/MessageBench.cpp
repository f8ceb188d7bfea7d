#include <string>
#include <vector>

#include "ProjectShare/NetMessage.h"
#include "tests/bench/BenchShare.h"
#include "tests/bench/MicroBench.h"

namespace korvel {

namespace {

using Text = LightweightString<char>;

constexpr char kSeparator = '\xAC';

/// The fields of a text as a programmer in a hurry splits it.
std::vector<std::string> splitByHand(const std::string& text) {
  std::vector<std::string> fields;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find(kSeparator, begin)) != std::string::npos;
       begin = end + 1) {
    fields.push_back(text.substr(begin, end - begin));
  }
  return fields;
}

/// And as he writes them.
std::string joinByHand(const std::vector<std::string>& fields) {
  std::string text;
  for (const std::string& each : fields) {
    const std::string field = each;
    text += field;
    text += kSeparator;
  }
  return text;
}

void addPair(MicroBench& to, const std::string& name, double size, const NetMessage& message) {
  const std::string text = message.asString().str();
  const std::vector<std::string> fields = splitByHand(text);
  const Bound bound = Bound::atMost(2.0);
  to.add({"encode " + name, size, bound,
          [message](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize(message.asString());
          },
          [fields](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize(joinByHand(fields));
          }});
  to.add({"decode " + name, size, bound,
          [wire = Text(std::string_view(text))](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize(NetMessage(wire));
          },
          [text](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize(splitByHand(text));
          }});
}

EditModification trim() {
  EditModification modification(eModTrim);
  modification.range_.start = 12.5;
  modification.range_.end = 48;
  modification.subject_ = "tracks/0/3";
  return modification;
}

NetMessage filterChange(const Cookie& filter) {
  NetMessage message(NetMessage::eFilterModification, filter);
  message.containerModification.value_ = ContainerModification::eReload;
  return message;
}

}  // namespace

void addMessagePairs(MicroBench& to) {
  BenchShare& bench = BenchShare::instance();
  bench.use(bench.memory() + "/open");
  const Cookie edit = Cookie::create(CookieTypeEdit);
  const Cookie bin = Cookie::create(CookieTypeBin);
  const Text path = "//server/media/day 3/A014C007_230114_R2EC.mxf";
  const auto add = [&](const char* name, const NetMessage& message) {
    addPair(to, name, 0, message);
  };
  add("1 EditModification", NetMessage(edit, trim()));
  add("2 EditSaved", NetMessage(NetMessage::eEditSaved, edit));
  add("3 EditDeleted", NetMessage(NetMessage::eEditDeleted, edit));
  add("5 PermissionsChange", NetMessage(NetMessage::ePermissionsChange, edit, Text("BEN")));
  add("6 RoomChange", NetMessage(NetMessage::eRoomChange, bench.project()));
  add("7 ContainerModification",
      NetMessage(bin, ContainerModification(ContainerModification::eRewritten)));
  add("8 AddMaterial", NetMessage(NetMessage::eAddMaterial, path));
  add("9 RemoveMaterial", NetMessage(NetMessage::eRemoveMaterial, path));
  add("10 UserMessage", NetMessage(NetMessage::eUserMessage, Text("BEN"), Text("lunch?")));
  add("11 BinTransfer", NetMessage(NetMessage::eBinTransfer, Text("BEN"), bin));
  add("12 ClipTransfer", NetMessage(NetMessage::eClipTransfer, Text("BEN"), edit));
  add("13 ActionRequest", NetMessage(NetMessage::eActionRequest, Text("7"), Text("refresh")));
  add("14 EditCreated", NetMessage(NetMessage::eEditCreated, edit));
  add("15 FilterModification", filterChange(Cookie::create(CookieTypeFilter)));
  for (const std::size_t letters : {64U, 1024U, 16384U}) {
    addPair(to, "10 UserMessage of so many letters", double(letters),
            NetMessage(NetMessage::eUserMessage, Text("BEN"),
                       Text(std::string_view(std::string(letters, 'x')))));
  }
}

}  // namespace korvel
