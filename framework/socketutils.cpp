#include "framework/socketutils.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "framework/assert.h"

namespace {

constexpr size_t kInterfaceListSize = 2048;

// Texts of the table live as long as the process.
CPLString KeptText(std::string_view i_text) {
  char* const pKept = new char[i_text.size() + 1]();
  i_text.copy(pKept, i_text.size());
  return {pKept, static_cast<UInt32>(i_text.size())};
}

Bool ListInterfaces(ifconf* io_pList) {
  const SInt32 s32Socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (s32Socket < 0) return false;
  const Bool bListed = ioctl(s32Socket, SIOCGIFCONF, io_pList) == 0;
  close(s32Socket);
  return bListed;
}

Bool IsIPv4(const ifreq& i_refEntry) { return i_refEntry.ifr_addr.sa_family == AF_INET; }

UInt32 AddrOf(const ifreq& i_refEntry) {
  sockaddr_in stAddr;
  std::memcpy(&stAddr, &i_refEntry.ifr_addr, sizeof(stAddr));
  return ntohl(stAddr.sin_addr.s_addr);
}

Bool LookUpName(UInt32 i_u32Addr, char* o_pName, UInt32 i_u32Size) {
  sockaddr_in stAddr{};
  stAddr.sin_family = AF_INET;
  stAddr.sin_addr.s_addr = htonl(i_u32Addr);
  return getnameinfo(reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr), o_pName, i_u32Size,
                     nullptr, 0, NI_NAMEREQD) == 0;
}

}  // namespace

CSocketUtils::T_IPAddrInfo* CSocketUtils::s_pIPAddrInfoArray = nullptr;
UInt32 CSocketUtils::s_u32NumIPAddrs = 0;

CMutex* CSocketUtils::ConversionMutex() {
  static CMutex* const s_pMutex = new CMutex;
  return s_pMutex;
}

void CSocketUtils::FillEntry(UInt32 i_u32Addr, Bool i_bLookupDNSNames, T_IPAddrInfo* o_pEntry) {
  char szText[kAddrTextSize];
  CPLString objText(szText, sizeof(szText));
  ConvertAddrToString(i_u32Addr, &objText);
  char szName[NI_MAXHOST];
  const Bool bNamed = i_bLookupDNSNames && LookUpName(i_u32Addr, szName, sizeof(szName));
  o_pEntry->m_u32IPAddr = i_u32Addr;
  o_pEntry->m_objIPAddrStr = KeptText(szText);
  o_pEntry->m_objDNSNameStr = KeptText(bNamed ? szName : szText);
}

void CSocketUtils::Initialize(Bool i_bLookupDNSNames) {
  if (s_pIPAddrInfoArray != nullptr) return;
  alignas(ifreq) char aBuffer[kInterfaceListSize];
  ifconf stList{};
  stList.ifc_len = sizeof(aBuffer);
  stList.ifc_buf = aBuffer;
  if (!ListInterfaces(&stList)) return;
  const auto u32Length = static_cast<size_t>(stList.ifc_len);
  OSD_ASSERT(u32Length % sizeof(ifreq) == 0, "0", "socketutils", 90);
  const std::span<const ifreq> entries(stList.ifc_req, u32Length / sizeof(ifreq));

  s_u32NumIPAddrs = static_cast<UInt32>(std::ranges::count_if(entries, IsIPv4));
  s_pIPAddrInfoArray = new T_IPAddrInfo[s_u32NumIPAddrs];
  UInt32 u32CurrentIndex = 0;
  for (const ifreq& refEntry : entries)
    if (IsIPv4(refEntry))
      FillEntry(AddrOf(refEntry), i_bLookupDNSNames, &s_pIPAddrInfoArray[u32CurrentIndex++]);
  OSD_ASSERT(u32CurrentIndex == s_u32NumIPAddrs, "u32CurrentIndex == s_u32NumIPAddrs",
             "socketutils", 136);

  if (s_u32NumIPAddrs >= 2 && s_pIPAddrInfoArray[0].m_u32IPAddr == INADDR_LOOPBACK)
    std::swap(s_pIPAddrInfoArray[0], s_pIPAddrInfoArray[1]);
}

UInt32 CSocketUtils::GetIPAddr(UInt32 i_u32Index) {
  OSD_ASSERT(s_pIPAddrInfoArray != nullptr, "s_pIPAddrInfoArray != NULL", "socketutils.h", 59);
  return s_pIPAddrInfoArray[i_u32Index].m_u32IPAddr;
}

CSocketUtils::T_IPAddrInfo* CSocketUtils::FindEntry(UInt32 i_u32Addr) {
  for (UInt32 u32Index = 0; u32Index < s_u32NumIPAddrs; ++u32Index)
    if (s_pIPAddrInfoArray[u32Index].m_u32IPAddr == i_u32Addr) return &s_pIPAddrInfoArray[u32Index];
  return nullptr;
}

CPLString* CSocketUtils::FindIPAddrStr(UInt32 i_u32Addr) {
  T_IPAddrInfo* const pEntry = FindEntry(i_u32Addr);
  return pEntry != nullptr ? &pEntry->m_objIPAddrStr : nullptr;
}

CPLString* CSocketUtils::FindDNSNameStr(UInt32 i_u32Addr) {
  T_IPAddrInfo* const pEntry = FindEntry(i_u32Addr);
  return pEntry != nullptr ? &pEntry->m_objDNSNameStr : nullptr;
}

UInt32 CSocketUtils::ConvertStringToAddr(const char* i_pText) {
  return i_pText != nullptr ? ntohl(inet_addr(i_pText)) : 0;
}

void CSocketUtils::ConvertAddrToString(UInt32 i_u32Addr, CPLString* io_pText) {
  in_addr stAddr;
  stAddr.s_addr = htonl(i_u32Addr);
  // inet_ntoa's buffer is static.
  CMutexLocker objLocker(ConversionMutex());
  const char* const pText = inet_ntoa(stAddr);
  io_pText->m_u32Len = static_cast<UInt32>(std::strlen(pText));
  std::memcpy(io_pText->m_pPtr, pText, io_pText->m_u32Len + 1);
}

Bool CSocketUtils::IsMulticastIPAddr(UInt32 i_u32Addr) { return i_u32Addr >> 28 == 0xE; }
