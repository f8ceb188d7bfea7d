#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/net/iNetworkService.h"
#include "host/os/OS.h"
#include "host/os/iFileManager.h"
#include "host/plugin/Shutdown.h"
#include "host/project/CommandMap.h"
#include "host/project/ProjectListener.h"

/// A host on memory: what it offers to the plug-in, and what the plug-in did with it. The project
/// "P0001" is open, in network mode. What it does not define comes from the host's library.
class TinyHost : public iOS,
                 public iOSPrivate,
                 public iNetworkService,
                 public iFileManager,
                 public CommandMap {
 public:
  static TinyHost& instance();

  std::vector<std::string> sent;                      ///< datagrams, in order
  std::map<std::wstring, std::string> files;          ///< contents by path
  std::set<std::wstring> held;                        ///< files that are open exclusively
  std::vector<ProjectListener*> listeners;            ///< those that live
  std::vector<Kv::Ptr<Shutdown::Callback>> atTheEnd;  ///< shutdown callbacks
  iNetMessageReceiver* receiver = nullptr;  ///< takes datagrams; null while nobody listens
  int commandsRun = 0;

  iFileManager& fileManager() override { return *this; }
  LightweightString<wchar_t> currentUserName() const override { return L"ANNA"; }
  LightweightString<wchar_t> networkHostName() const override { return L"ANNA"; }
  void sleepMilliseconds(unsigned) override {}
  iNetworkService& networkService() override { return *this; }

  Kv::Ptr<iUDPBroadcaster> createUDPBroadcaster(int port) override;
  Kv::Ptr<iUDPListener> createUDPListener(int port, unsigned flags,
                                          iNetMessageReceiver* to) override;

  Kv::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                          int share, int flags) override;
  bool removeFile(const LightweightString<wchar_t>& path) override;
  bool listDirectory(const LightweightString<wchar_t>&, int, int, Vector<DirectoryItem>&) override;
  bool markFile(const LightweightString<wchar_t>& path, int value) override;
  wchar_t pathSeparator() const override { return L'/'; }
  eFileError lastError() const override { return eFileError::eNone; }

  Index findCommand(const LightweightString<char>& name) const override;
  void callCommand(Index, const CommandContext&) override { ++commandsRun; }

  /// Hands a datagram to the plug-in, as from another station.
  void deliver(const std::string& text) const;
};
