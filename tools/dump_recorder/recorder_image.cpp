// The dump recorder's bytes, taken into this object file by the assembler
// from the stripped copy that CMake makes (NGI_RECORDER_IMAGE_FILE), into
// the read-only data section of the target's object format
// (NGI_RODATA_SECTION), then back to code (NGI_SECTION_BACK).

#include "diag/dump_recorder_image.h"

#define NGI_STR2(x) #x
#define NGI_STR(x) NGI_STR2(x)

asm(".section " NGI_STR(NGI_RODATA_SECTION) "\n"
    ".balign 16\n"
    "ngi_dump_recorder_image_begin:\n"
    ".incbin \"" NGI_STR(NGI_RECORDER_IMAGE_FILE) "\"\n"
    "ngi_dump_recorder_image_end:\n"
    NGI_STR(NGI_SECTION_BACK) "\n");

extern "C" const uint8_t ngi_dump_recorder_image_begin[] __asm__("ngi_dump_recorder_image_begin");
extern "C" const uint8_t ngi_dump_recorder_image_end[] __asm__("ngi_dump_recorder_image_end");

namespace crash {

std::span<const uint8_t> DumpRecorderImage() {
    return {ngi_dump_recorder_image_begin,
            static_cast<size_t>(ngi_dump_recorder_image_end - ngi_dump_recorder_image_begin)};
}

}  // namespace crash
