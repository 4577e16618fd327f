// A capture file, and the frames in it.
#include "kiln/OwnedFd.h"
#include "softchip/CaptureReader.h"
#include "softchip/Frame.h"
#include "tests/fuzz/Fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

using ZelFuzz::must;

int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   const Kiln::OwnedFd file(memfd_create("capture", MFD_CLOEXEC));
   must(write(file.fd(), data, size) == static_cast<ssize_t>(size), "there is memory for the file");
   const Kiln::String path = "/proc/self/fd/" + std::to_string(file.fd());
   std::size_t octets = 0;
   try {
      SoftChip::CaptureReader reader(path);
      try {
         while (const auto frame = reader.next()) {
            octets += frame->bytes.size();
            must(octets <= size, "frames have no more octets than the file");
            must(frame->originalLength >= frame->bytes.size(), "a frame is at least as long as captured");
            // Of memory of just that size, so that a sanitizer sees a read beyond it.
            const std::vector<U8> captured(frame->bytes.begin(), frame->bytes.end());
            const SoftChip::FrameInfo info = SoftChip::parseFrame(captured, frame->originalLength);
            must((info.tagCount > 0) == info.outerTag.present(), "a tag that is counted is there");
            must((info.tagCount > 1) == info.innerTag.present(), "so is a second one");
            must(!info.vxlan.present || info.ip.destinationPort == SoftChip::vxlanUdpPort,
                 "a tunnel has its port");
            must(!info.ip.hasPorts || info.ip.version != SoftChip::IpVersion::none, "ports are of IP");
            must(info.macControl.pfcPriorities == 0 || info.macControl.opcode == SoftChip::macControlPfc,
                 "priorities are paused by PFC only");
            must(info.wireLength == frame->originalLength + SoftChip::fcsOctets, "the FCS is counted");
         }
      } catch (const SoftChip::CaptureError& error) {
         must(std::string_view(error.what()).find(path) != std::string_view::npos, "an error names the file");
         must(!reader.next(), "no frame follows an error");
      }
   } catch (const SoftChip::CaptureError& error) {
      must(std::string_view(error.what()).find(path) != std::string_view::npos, "an error names the file");
   }
   return 0;
}
