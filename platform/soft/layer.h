// One open framebuffer device of the software screen: the driver's requests in their one right
// order, acting on the layer's file. Guarded by the device's mutex.
#pragma once

#include <linux/fb.h>

#include <memory>
#include <string>

#include "platform/records.h"
#include "platform/soft/handles.h"
#include "platform/soft/layer_file.h"
#include "platform/soft/memory.h"

class CSoftLayer {
 public:
  // Opens the layer file i_strPath. Null with errno: as open(2); ENODEV when it is something else
  // than a layer file or an empty file; ENOSPC when there is no room for its header.
  static std::unique_ptr<CSoftLayer> Open(const std::string& i_strPath,
                                          const CSoftMemory& i_memory);

  // A layer that nobody used until now is not shown, and a refresh that a dead process left half
  // copied counts as done.
  void FirstUser();

  // Nobody uses the layer any more: it is not shown.
  void LastUserLeft();

  // 0 or an errno: EINVAL for a request, an order or a record that the driver does not take; EIO
  // when the file was removed or cut by somebody else; ENOSPC when it cannot grow.
  SInt32 Ioctl(UInt32 i_u32Request, void* io_pRecord);

  // The layer file's descriptor; it stays this object's.
  SInt32 Fd() const { return m_file.Get(); }

 private:
  enum EStage { kOpened, kAlphaSet, kInfoRead, kPlaced, kSized, kBuffered, kShown };
  struct T_Request {
    UInt32 m_u32Code;
    EStage m_eFirst;  // taken in the stages m_eFirst to m_eLast
    EStage m_eLast;
    EStage m_eNext;
    SInt32 (CSoftLayer::*m_pHandle)(void* io_pRecord);
  };
  static const T_Request s_aRequests[];

  CSoftLayer(CDescriptor i_file, CMapping i_mapping, const CSoftMemory& i_memory);

  SInt32 PutAlpha(void* i_pRecord);
  SInt32 GetInfo(void* o_pRecord);
  SInt32 PutOrigin(void* i_pRecord);
  SInt32 GetCapability(void* o_pRecord);
  SInt32 PutInfo(void* i_pRecord);
  SInt32 PutBuffering(void* i_pRecord);
  SInt32 Show(void* i_pRecord);
  SInt32 Refresh(void* i_pRecord);

  T_LayerHeader& Header() const { return *reinterpret_cast<T_LayerHeader*>(m_mapping.Bytes()); }
  Bool FileIsWhole() const;
  Bool TakesRefresh(const T_FbRefresh& i_refresh) const;
  void Copy(const T_FbRefresh& i_refresh, const UInt8* i_pCanvas);

  CDescriptor m_file;
  CMapping m_mapping;
  const CSoftMemory& m_memory;
  EStage m_eStage = kOpened;
  fb_var_screeninfo m_info;
};
