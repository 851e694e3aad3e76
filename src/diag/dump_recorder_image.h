#pragma once
// The dump recorder program as the indexer carries it: the bytes of the
// NorvaDumpRecorder executable built in tools/dump_recorder, linked into
// the program by the library ngi_dump_recorder_image. The indexer hands it
// to CCrashHandler::Install; COutOfProcDumpGen writes it to the temporary
// folder at the moment of a crash.

#include <cstdint>
#include <span>

namespace crash {

std::span<const uint8_t> DumpRecorderImage();

}  // namespace crash
