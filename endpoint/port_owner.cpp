#include "endpoint/port_owner.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

namespace fs = std::filesystem;

struct T_Socket {
  std::string m_strUser;
  std::string m_strInode;  // empty: none was found
};

// In a table of /proc/net, whose addresses are words in memory order and whose ports are not. An
// IPv6 address ends with the IPv4 address that it stands for, or with zeros when it is any.
T_Socket FindSocket(const char* i_pTable, UInt32 i_u32Addr, UInt16 i_u16Port) {
  char szOwn[16];
  char szAny[16];
  std::snprintf(szOwn, sizeof(szOwn), "%08X:%04X", htonl(i_u32Addr), i_u16Port);
  std::snprintf(szAny, sizeof(szAny), "%08X:%04X", INADDR_ANY, i_u16Port);
  std::ifstream table(i_pTable);
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string local, skipped;
    T_Socket socket;
    fields >> skipped >> local >> skipped >> skipped >> skipped >> skipped >> skipped >>
        socket.m_strUser >> skipped >> socket.m_strInode;
    if (local.ends_with(szOwn) || local.ends_with(szAny)) return socket;
  }
  return {};
}

// The first entry that i_is holds for; empty without one. What cannot be read, or goes meanwhile,
// has no entries.
fs::path FindEntry(const fs::path& i_folder, const std::function<Bool(const fs::path&)>& i_is) {
  std::error_code error;
  for (fs::directory_iterator it(i_folder, error); it != fs::directory_iterator();
       it.increment(error))
    if (i_is(it->path())) return it->path();
  return {};
}

Bool Has(const fs::path& i_process, const std::string& i_strDescriptor) {
  return !FindEntry(i_process / "fd", [&](const fs::path& i_fd) {
            std::error_code error;
            return fs::read_symlink(i_fd, error) == i_strDescriptor;
          }).empty();
}

std::string ProcessWith(const std::string& i_strDescriptor) {
  const fs::path process = FindEntry("/proc", [&](const fs::path& i_process) {
    return std::isdigit(i_process.filename().c_str()[0]) && Has(i_process, i_strDescriptor);
  });
  if (process.empty()) return {};
  std::string name;
  std::ifstream comm(process / "comm");
  std::getline(comm, name);
  return "process " + process.filename().string() + " (" + name + ")";
}

}  // namespace

std::string PortOwner(UInt32 i_u32Addr, UInt16 i_u16Port) {
  for (const char* pTable : {"/proc/net/udp", "/proc/net/udp6"}) {
    const T_Socket socket = FindSocket(pTable, i_u32Addr, i_u16Port);
    if (socket.m_strInode.empty()) continue;
    const std::string process = ProcessWith("socket:[" + socket.m_strInode + "]");
    return process.empty() ? "a process of user " + socket.m_strUser : process;
  }
  return {};
}
