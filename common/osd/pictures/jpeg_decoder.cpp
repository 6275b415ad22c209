#include <fcntl.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/osd/pictures/row_reader.h"
#include "framework/program.h"
#include "platform/platform.h"

namespace {

constexpr const char* kTemporaryFolder = "/yuvfile";
// By the clock, for a decoder that waits for ever. Far above what a picture takes: on a busy
// machine the decoder waits for the processor.
constexpr UInt32 kDecoderLimitS = 5;
constexpr UInt32 kDecoderLimitSPerMpixel = 3;
constexpr UInt32 kDecoderMaxProcessorS = 60;
// A progressive picture of the largest size needs 600 MB.
constexpr UInt64 kDecoderMaxMemory = UInt64{1} << 30;
constexpr UInt32 kMaxSegments = 1024;  // a photograph has some dozens before its frame
constexpr UInt32 kMaxFill = 256;
constexpr size_t kBmpHead = 54;

struct T_JpegFrame {
  T_Extent m_stExtent;
  UInt32 m_u32Components;

  // Of the picture as djpeg writes it.
  size_t BmpBytes() const {
    return kBmpHead + (size_t{m_stExtent.m_u32W} * 3 + 3) / 4 * 4 * m_stExtent.m_u32H;
  }
  UInt32 LimitS() const {
    return kDecoderLimitS +
           static_cast<UInt32>(m_stExtent.Pixels() >> 20) * kDecoderLimitSPerMpixel;
  }
};

Bool IsFrameHeader(UInt8 i_u8Marker) {
  constexpr UInt8 kHuffmanTables = 0xC4;
  constexpr UInt8 kExtension = 0xC8;
  constexpr UInt8 kArithmeticTables = 0xCC;
  return i_u8Marker >= 0xC0 && i_u8Marker <= 0xCF && i_u8Marker != kHuffmanTables &&
         i_u8Marker != kExtension && i_u8Marker != kArithmeticTables;
}

UInt32 BigEndian16(const UInt8* i_pBytes) { return UInt32{i_pBytes[0]} << 8 | i_pBytes[1]; }

// The next marker; 0 when something else stands there. Fill bytes may stand before it.
UInt8 NextMarker(CPictureFile& io_file) {
  constexpr UInt8 kStart = 0xFF;
  UInt8 u8Byte = 0;
  if (!io_file.Read(&u8Byte, 1) || u8Byte != kStart) return 0;
  for (UInt32 u32Fill = 0; u8Byte == kStart && u32Fill < kMaxFill; ++u32Fill)
    if (!io_file.Read(&u8Byte, 1)) return 0;
  return u8Byte;
}

// From segment to segment up to the frame header, which has the size.
CResult<T_JpegFrame> FindFrame(CPictureFile& io_file) {
  constexpr UInt8 kRestart = 0xD0;
  constexpr UInt8 kScan = 0xDA;
  UInt8 aSegment[8];  // length with itself, precision, height, width, components
  io_file.Seek(2);
  for (UInt32 u32Segment = 0; u32Segment < kMaxSegments; ++u32Segment) {
    const UInt8 u8Marker = NextMarker(io_file);
    const size_t start = io_file.Offset();
    // From the restart markers up to the scan there is none that a frame header may follow.
    if (u8Marker < 0xC0 || (u8Marker >= kRestart && u8Marker <= kScan)) break;
    if (!io_file.Read(aSegment, 2)) break;
    if (IsFrameHeader(u8Marker)) {
      if (!io_file.Read(aSegment + 2, 6)) break;
      return T_JpegFrame{{BigEndian16(aSegment + 5), BigEndian16(aSegment + 3)}, aSegment[7]};
    }
    io_file.Seek(start + BigEndian16(aSegment));
  }
  return Refuse("its JPEG is damaged: it tells no size");
}

// A file without a name, with room for i_bytes where the file system can promise that.
CResult<CDescriptor> MakeTemporary(size_t i_bytes) {
  const std::string folder = SystemPath(kTemporaryFolder);
  std::string path = folder + "/osd-picture.XXXXXX";
  CDescriptor file(mkostemp(path.data(), O_CLOEXEC));
  if (file.Get() < 0)
    return Refuse("no temporary file in the folder %s: %s", folder.c_str(), std::strerror(errno));
  unlink(path.c_str());
  if (fallocate(file.Get(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(i_bytes)) == 0 ||
      errno == EOPNOTSUPP || errno == ENOSYS)
    return file;
  return Refuse("no %zu bytes in the temporary folder %s: %s", i_bytes, folder.c_str(),
                std::strerror(errno));
}

std::string FirstLine(const std::string& i_strText) {
  constexpr size_t kMaxLine = 200;
  std::string line = i_strText.substr(0, std::min(i_strText.find('\n'), kMaxLine));
  for (char& character : line)
    if (character < ' ' || character > '~') character = '?';
  return line;
}

CResult<> CheckEnd(const T_ProgramResult& i_result, UInt32 i_u32LimitS) {
  const std::string folder = SystemPath(kTemporaryFolder);
  const SInt32 s32Status = i_result.m_s32Status;
  const std::string said = FirstLine(i_result.m_strError);
  if (i_result.m_eEnd == ProgramEnd::kNotStarted)
    return Refuse("djpeg cannot be started: there is no process or no pipe left");
  if (i_result.m_eEnd == ProgramEnd::kTimedOut)
    return Refuse("djpeg did not end within %u s and was killed", i_u32LimitS);
  if (i_result.m_eEnd == ProgramEnd::kStopped) return Refuse("stopped");
  if (WIFSIGNALED(s32Status))
    return Refuse("djpeg, writing to the folder %s, was ended by the signal \"%s\"", folder.c_str(),
                  strsignal(WTERMSIG(s32Status)));
  if (WEXITSTATUS(s32Status) == 127)
    return Refuse("djpeg is not installed (Debian package libjpeg-turbo-progs) or cannot run %s",
                  said.c_str());
  if (s32Status != 0)
    return Refuse("djpeg, writing to the folder %s, failed with %d: %s", folder.c_str(),
                  WEXITSTATUS(s32Status), said.c_str());
  return {};
}

}  // namespace

CResult<T_Rows> ReadJpeg(const T_File& i_pFile, const std::stop_token& i_stop) {
  const CResult<T_JpegFrame> frame = FindFrame(*i_pFile);
  if (!frame) return frame.Refusal();
  const auto [w, h] = frame->m_stExtent;
  if (const CResult<> size = CheckSize(w, h); !size) return size.Refusal();
  CResult<CDescriptor> bitmap = MakeTemporary(frame->BmpBytes());
  if (!bitmap) return bitmap.Refusal();
  // A grey picture would get a palette.
  const char* const pGrey = frame->m_u32Components == 1 ? "-rgb" : nullptr;
  const char* const aArguments[] = {"djpeg", "-bmp", pGrey, nullptr};
  const T_Program djpeg{.m_pArguments = aArguments,
                        .m_s32Stdin = i_pFile->Descriptor(),
                        .m_s32Stdout = bitmap->Get(),
                        .m_u32LimitMs = frame->LimitS() * 1000,
                        .m_u32MaxProcessorS = kDecoderMaxProcessorS,
                        .m_u64MaxFileBytes = frame->BmpBytes(),
                        .m_u64MaxMemory = kDecoderMaxMemory};
  const CResult<> end = CheckEnd(RunProgram(djpeg, i_stop), frame->LimitS());
  if (!end) return end.Refusal();
  CResult<T_Rows> rows = ReadBmp(std::make_shared<CPictureFile>(std::move(*bitmap)), i_stop);
  if (rows && (*rows)->Extent() == frame->m_stExtent) return rows;
  return Refuse("djpeg did not give its %u x %u pixels: %s", w, h,
                rows ? "another size" : rows.Why().c_str());
}
