#include <fstream>
#include <iterator>

#include "tests/share/SharedStations.h"
#include "tests/support/ElfFile.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// What the Debian packages hold, unpacked elsewhere than it is made for.
class PackageTest : public SharedStations {
 protected:
  StationProcess& startInstalled() {
    StationProcess::Options options;
    options.program = KV_ROOT "/usr/bin/kv-station";
    options.projects = folder_ / "projects";
    options.user = options.host = "ANNA";
    options.port = port_;
    stations_.push_back(std::make_unique<StationProcess>(std::move(options)));
    EXPECT_TRUE(stations_.back()->waitUntilReady()) << stations_.back()->errorText();
    return *stations_.back();
  }
};

TEST_F(PackageTest, ItsStationAndToolWorkFromWhereTheyLie) {
  StationProcess& anna = startInstalled();
  run(anna, "project create Secret --private");
  run(anna, "project enter Secret");
  const std::string maps = contentOf("/proc/" + std::to_string(anna.pid()) + "/maps");
  EXPECT_NE(maps.find(KV_ROOT "/usr/" KV_LIBRARY_DIR "/korvel/ProjectShare.so"), maps.npos) << maps;
  const ProgramRun locks = runProgram({KV_ROOT "/usr/bin/kv-share", "locks", folder_ / "projects"});
  EXPECT_EQ(locks.status, 0) << locks.errors;
  EXPECT_NE(locks.output.find("held"), std::string::npos) << locks.output;
  EXPECT_NE(locks.output.find("ANNA"), std::string::npos) << locks.output;
  EXPECT_EQ(anna.quit(), 0);
}

TEST_F(PackageTest, ItHoldsWhatAnAdministratorLooksFor) {
  const std::pair<std::string, std::string> rows[] = {
      {"etc/ufw/applications.d/project-share", "ports=27015/udp"},
      {"usr/lib/firewalld/services/project-share.xml", "port=\"27015\""},
      {"usr/share/bash-completion/completions/kv-share", "complete -o default -F _kv_share"},
      {"usr/share/bash-completion/completions/kv-station", "complete -o default -F _kv_station"},
      {"usr/share/zsh/vendor-completions/_kv_share", "#compdef kv-share kv-station"},
      {"usr/share/man/man1/kv-station.1.gz", ""},
      {"usr/share/man/man1/kv-share.1.gz", ""},
      {"usr/share/doc/project-share/copyright", "Project Share"},
      {"usr/share/doc/project-share/changelog.gz", ""},
      {"usr/share/doc/project-share/docs/administration.md", "firewall"},
      {"usr/" KV_LIBRARY_DIR "/korvel/resources/tool_messager_on.png", "PNG"},
      {"usr/lib/" KV_ARCHITECTURE "/wireshark/plugins/projectshare.lua", "Proto("},
      {"usr/share/applications/project-share.desktop", "Exec=kv-station --gui"},
      {"usr/share/icons/hicolor/scalable/apps/project-share.svg", "<svg"},
      {"usr/share/icons/hicolor/48x48/apps/project-share.png", "PNG"},
      {"usr/share/doc/project-share/docs/guide.md", "private"},
      {"usr/share/doc/project-share/docs/images/window-edit.png", "PNG"},
      {"usr/share/doc/project-share-window/copyright", "Project Share"},
      {"project-share.control", "libstdc++6"},
      {"project-share-window.control", "libqt6widgets6"},
      {"project-share-window.control", "project-share (= "},
  };
  for (const auto& [file, part] : rows) {
    const std::string text = contentOf(std::string(KV_ROOT "/") + file);
    EXPECT_FALSE(text.empty()) << file;
    EXPECT_NE(text.find(part), text.npos) << file;
  }
}

TEST_F(PackageTest, AMachineWithoutADisplayNeedsNoToolkit) {
  EXPECT_EQ(contentOf(KV_ROOT "/project-share.control").find("qt6"), std::string::npos);
  const std::string program = KV_ROOT "-console/usr/bin/kv-station";
  const ProgramRun console =
      runProgram({program, "--projects", folder_ / "projects", "--script", "-"}, "whoami\n");
  EXPECT_EQ(console.status, 0) << console.errors;
  const ProgramRun window = runProgram({program, "--projects", folder_ / "projects", "--gui"});
  EXPECT_EQ(window.status, 2);
  EXPECT_NE(window.errors.find("install project-share-window"), std::string::npos) << window.errors;
}

TEST_F(PackageTest, ItsWindowOpensFromWhereItLies) {
  const ProgramRun window =
      runProgram({"env", "QT_QPA_PLATFORM=offscreen", KV_ROOT "/usr/bin/kv-station", "--projects",
                  folder_ / "projects", "--gui", "--script", "-"},
                 "quit\n");
  EXPECT_EQ(window.status, 0) << window.errors;
}

TEST_F(PackageTest, ADesktopFindsItsEntryItsProgramAndItsIcon) {
  const std::string share = KV_ROOT "/usr/share";
  const std::string file = share + "/applications/project-share.desktop";
  const std::string entry = contentOf(file);
  for (const char* line : {"Type=Application\n", "Name=Project Share\n", "Icon=project-share\n",
                           "TryExec=kv-station\n", "StartupWMClass=kv-station\n"}) {
    EXPECT_NE(entry.find(line), entry.npos) << line;
  }
  EXPECT_TRUE(fs::exists(KV_ROOT "/usr/bin/kv-station"));
  for (const int size : {16, 24, 32, 48, 64, 128, 256}) {
    const std::string sides = std::to_string(size) + "x" + std::to_string(size);
    const std::string icon =
        contentOf(share + "/icons/hicolor/" + sides + "/apps/project-share.png");
    ASSERT_GT(icon.size(), 24U) << sides;
    // The width and the height, in the file's first part.
    EXPECT_EQ(static_cast<unsigned char>(icon[18]) * 256 + static_cast<unsigned char>(icon[19]),
              size);
    EXPECT_EQ(icon.substr(16, 4), icon.substr(20, 4)) << sides;
  }
  const ProgramRun valid = runProgram({"desktop-file-validate", file});
  if (valid.status == 127) GTEST_SKIP() << "there is no desktop-file-validate";
  EXPECT_EQ(valid.status, 0) << valid.output << valid.errors;
}

TEST_F(PackageTest, ItsProgramsAndLibrariesAreHardened) {
  for (const char* file :
       {"bin/kv-station", "bin/kv-share", KV_LIBRARY_DIR "/korvel/libkorvelhost.so",
        KV_LIBRARY_DIR "/korvel/libkorvelwindow.so", KV_LIBRARY_DIR "/korvel/ProjectShare.so"}) {
    const ElfFile elf(std::string(KV_ROOT "/usr/") + file);
    ASSERT_TRUE(elf.isElf()) << file;
    EXPECT_TRUE(elf.isPositionIndependent()) << file;
    EXPECT_TRUE(elf.isBoundAtStart()) << file;
    EXPECT_TRUE(elf.mentions("__stack_chk_fail")) << file;
    for (const std::string& folder : elf.searchFolders()) {
      EXPECT_TRUE(folder.starts_with("$ORIGIN")) << file << " looks in \"" << folder << "\"";
    }
  }
  EXPECT_TRUE(ElfFile(KV_ROOT "/usr/" KV_LIBRARY_DIR "/korvel/libkorvelhost.so")
                  .mentions("__snprintf_chk"));
}

TEST_F(PackageTest, AnotherHostIsBuiltAgainstItsHeadersAndDrivesItsPlugin) {
  const std::string build = folder_ / "build";
  const ProgramRun configured = runProgram(
      {KV_CMAKE, "-S", KV_TINY_HOST, "-B", build, "-DCMAKE_PREFIX_PATH=" KV_ROOT "/usr"});
  ASSERT_EQ(configured.status, 0) << configured.output << configured.errors;
  const ProgramRun built = runProgram({KV_CMAKE, "--build", build});
  ASSERT_EQ(built.status, 0) << built.output << built.errors;
  const ProgramRun host = runProgram({build + "/tiny-host"});
  EXPECT_EQ(host.status, 0) << host.output << host.errors;
  EXPECT_NE(host.output.find("it is unloaded: yes"), std::string::npos) << host.output;
}

TEST_F(PackageTest, PkgConfigNamesItsHeadersAndLibrariesWhereTheyLie) {
  const std::string folder = KV_ROOT "/usr/" KV_LIBRARY_DIR;
  const auto answer = [&folder](const std::string& question) {
    const ProgramRun run = runProgram({"env", "PKG_CONFIG_PATH=" + folder + "/pkgconfig",
                                       "pkg-config", question, "project-share"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output.find("//"), run.output.npos) << run.output;
    return run.output.substr(0, run.output.find_last_not_of(" \n") + 1);
  };
  EXPECT_TRUE(fs::exists(answer("--variable=includedir") + "/host/plugin/KvPluginBase.h"));
  EXPECT_TRUE(fs::equivalent(answer("--variable=plugin"), folder + "/korvel/ProjectShare.so"));
  EXPECT_TRUE(fs::exists(answer("--variable=libdir") + "/libkorvelhost.so"));
  EXPECT_NE(answer("--libs").find("-lkorvelhost"), std::string::npos);
}

}  // namespace
