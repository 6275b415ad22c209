// Tells whoever connects to the state socket what the daemon shows (docs/state.md): a line in is a
// command, a line out is a JSON document. Has a thread of its own, which sleeps while nobody asks.
// One object lives in main(); all but Changed is for the thread that owns it.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "framework/descriptor.h"
#include "framework/thread.h"

// What the server asks; called on its thread.
struct T_StateSource {
  std::function<std::string()> m_document;
  // Lets so many seconds pass at once. Null where time passes by itself alone.
  std::function<void(UInt32 i_u32Seconds)> m_tick;
};

class CStateServer : public CThread {
 public:
  static constexpr size_t kMaxReaders = 8;

  explicit CStateServer(T_StateSource i_source) : m_source(std::move(i_source)) {}
  ~CStateServer() override { Stop(); }

  // Listens at i_strPath, where a socket that is there already is replaced, and starts the thread.
  // Where that cannot be (the path is too long, something else is there) a WARN line says why, and
  // the daemon goes without. Once.
  void Open(const std::string& i_strPath);

  // Ends the thread and removes the socket. Again is harmless.
  void Stop();

  // Something may have changed: who watches will be told. Any thread; costs next to nothing while
  // nobody watches.
  void Changed();

 protected:
  void Entry() override;

 private:
  struct T_Reader {
    CDescriptor m_fd;
    std::string m_strIn;
    std::string m_strOut;
    Bool m_bWatches = false;
    SInt64 m_s64Since = 0;  // ms, of the last sign of life
  };

  Bool Listen(const std::string& i_strPath);
  SInt32 Wait(SInt64 i_s64Now);
  void Accept(SInt64 i_s64Now);
  Bool Serve(T_Reader& io_reader, short i_events, SInt64 i_s64Now);
  Bool Receive(T_Reader& io_reader);
  void Answer(T_Reader& io_reader, const std::string& i_strCommand);
  void TellWatchers(SInt64 i_s64Now);
  static Bool Flush(T_Reader& io_reader, SInt64 i_s64Now);

  const T_StateSource m_source;
  std::string m_strPath;
  CDescriptor m_listener;
  CDescriptor m_wake;  // an eventfd
  std::list<T_Reader> m_readers;
  SInt64 m_s64NextTell = 0;  // ms
  std::atomic<Bool> m_bWatched{false};
  std::atomic<Bool> m_bChanged{false};
};
