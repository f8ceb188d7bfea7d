#include "tests/fakes/FakeHost.h"

#include "host/base/Text.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"

namespace korvel {

namespace {

FakeHost* currentHost = nullptr;

}  // namespace

/// Takes what the log writes; the fake host's parts tell of nothing else.
class FakeHost::LogSink : public iStationEvents {
 public:
  explicit LogSink(FakeHost& host) : host_(host) {}
  void sent(const std::string&) override {}
  void received(const std::string&, const MessageFields&) override {}
  void changed(const std::string&, const Cookie&, const std::string&, Origin) override {}
  void log(bool toConsole, const std::string& text) override {
    host_.logLines.push_back((toConsole ? "both: " : "log: ") + text);
  }
  void command(const std::string&) override {}
  void network(const std::string&, std::uint64_t) override {}
  void notification(const std::string&) override {}
  void panel(const std::vector<std::string>&) override {}

 private:
  FakeHost& host_;
};

FakeHost::FakeHost() : outer_(currentHost), logSink_(std::make_unique<LogSink>(*this)) {
  currentHost = this;
  installSettings(StationSettings{});
  installEvents(logSink_.get());
}

FakeHost::~FakeHost() {
  currentHost = outer_;
  installEvents(outer_ ? outer_->logSink_.get() : nullptr);
}

FakeHost& FakeHost::current() {
  // Never destroyed: what a plug-in's static objects release at exit still finds it.
  if (!currentHost) new FakeHost;
  return *currentHost;
}

void FakeHost::configure(const std::string& key, const std::string& value) {
  StationSettings changed = settings();
  changed.config[key] = value;
  installSettings(changed);
}

void FakeHost::setMachine(int number) {
  StationSettings changed = settings();
  changed.machine = number;
  installSettings(changed);
}

LightweightString<wchar_t> FakeHost::fileOf(const Cookie& cookie, const char* ending) const {
  return os.projectsDirectory + project.current.asWString() + L"/" + cookie.asWString() +
         fromUTF8(ending);
}

}  // namespace korvel
