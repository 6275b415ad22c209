// What the programs of the benchmark share. Each is called as
//   PROGRAM ROUNDS ROW...
// measures the rows that it is asked for and prints a line of JSON for each: one figure a round for
// ours and for the reference, taken in turns, so that both feel the same machine.
#pragma once

#include <arpa/inet.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "framework/types.h"

using T_Clock = std::chrono::steady_clock;
using T_Figures = std::vector<double>;

// The microseconds since then.
inline double Since(T_Clock::time_point i_start) {
  return std::chrono::duration<double, std::micro>(T_Clock::now() - i_start).count();
}

[[noreturn]] inline void Die(const std::string& i_what) {
  std::fprintf(stderr, "benchmark: %s\n", i_what.c_str());
  std::exit(1);
}

// Keeps the compiler from leaving out what was written so far.
inline void Written() { __asm__ volatile("" : : : "memory"); }

// The microseconds that each of i_u32Times calls takes.
template <class F>
double Each(UInt32 i_u32Times, F&& i_work) {
  const auto start = T_Clock::now();
  for (UInt32 i = 0; i < i_u32Times; ++i) {
    i_work();
    Written();
  }
  return Since(start) / i_u32Times;
}

inline double Percentile(T_Figures i_figures, size_t i_percent) {
  std::sort(i_figures.begin(), i_figures.end());
  return i_figures.at(std::min(i_figures.size() - 1, i_figures.size() * i_percent / 100));
}

// A row in the making.
struct T_Row {
  T_Figures m_ours;
  T_Figures m_reference;  // empty for a figure that stands for itself

  void Add(double i_ours, double i_reference) {
    m_ours.push_back(i_ours);
    m_reference.push_back(i_reference);
  }
};

inline std::string Json(const T_Figures& i_figures) {
  std::string text;
  char szFigure[32];
  for (const double figure : i_figures) {
    std::snprintf(szFigure, sizeof(szFigure), "%s%.6g", text.empty() ? "" : ", ", figure);
    text += szFigure;
  }
  return "[" + text + "]";
}

// The fresh device root that bench/run made for this program, with all that the software screen
// needs.
inline std::string DeviceRoot() {
  const char* const pRoot = std::getenv("OSD_ROOT");
  if (pRoot == nullptr) Die("OSD_ROOT must name a fresh folder from tools/device-root");
  return pRoot;
}

class CBench {
 public:
  CBench(int i_s32Argc, char** i_ppArgv) {
    if (i_s32Argc < 3 || std::atoi(i_ppArgv[1]) < 1)
      Die(std::string("usage: ") + i_ppArgv[0] + " ROUNDS ROW..., as bench/run calls it");
    DeviceRoot();
    m_u32Rounds = static_cast<UInt32>(std::atoi(i_ppArgv[1]));
    m_setRows = {i_ppArgv + 2, i_ppArgv + i_s32Argc};
  }

  UInt32 Rounds() const { return m_u32Rounds; }
  // Whether one of the rows was asked for.
  Bool Wants(std::initializer_list<const char*> i_rows) const {
    return std::any_of(i_rows.begin(), i_rows.end(),
                       [&](const char* i_pRow) { return m_setRows.contains(i_pRow); });
  }
  // Prints the row, if it was asked for. i_note says what a reader must know beside the figures.
  void Print(const std::string& i_name, const T_Row& i_row, const std::string& i_note = "") const {
    if (!m_setRows.contains(i_name)) return;
    std::printf(R"({"row": "%s", "ours": %s, "reference": %s, "note": "%s"})"
                "\n",
                i_name.c_str(), Json(i_row.m_ours).c_str(), Json(i_row.m_reference).c_str(),
                i_note.c_str());
    std::fflush(stdout);
  }

 private:
  UInt32 m_u32Rounds;
  std::set<std::string> m_setRows;
};

// Binds the calling thread, and what it starts, to one processor.
inline void Pin(UInt32 i_u32Core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(i_u32Core, &set);
  if (sched_setaffinity(0, sizeof(set), &set) != 0) Die("cannot bind to a processor");
}

inline sockaddr_in Loopback(UInt16 i_u16Port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(i_u16Port);
  return address;
}

// A UDP socket on that port; 0 = any.
inline int Bound(UInt16 i_u16Port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(i_u16Port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
    Die("UDP port " + std::to_string(i_u16Port) + " is taken; 9634 and 9636 must be free");
  return fd;
}

// A reference server says on standard output where it listens.
inline int BoundAndTold() {
  const int fd = Bound(0);
  sockaddr_in own{};
  socklen_t size = sizeof(own);
  getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
  std::printf("%u\n", ntohs(own.sin_port));
  std::fflush(stdout);
  return fd;
}

// A datagram and whom it came from, or goes to.
struct T_Datagram {
  UInt8 m_aBytes[512];
  ssize_t m_length = -1;  // below 0: none was there
  sockaddr_in m_peer{};

  void Receive(int i_fd) {
    socklen_t size = sizeof(m_peer);
    m_length = recvfrom(i_fd, m_aBytes, sizeof(m_aBytes), MSG_DONTWAIT,
                        reinterpret_cast<sockaddr*>(&m_peer), &size);
  }
  void Send(int i_fd) const {
    sendto(i_fd, m_aBytes, static_cast<size_t>(m_length), 0,
           reinterpret_cast<const sockaddr*>(&m_peer), sizeof(m_peer));
  }
};
