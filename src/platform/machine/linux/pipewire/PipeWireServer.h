// PipeWireServer: the AudioServer port on PipeWire.
// Why: everything Corvane asks of an audio server goes through one connection, which comes back by itself.
//
// One loop thread per server object runs all control; its lock is the one lock of this folder, taken by every
// control call. PipeWire's data thread runs Filter::Process and nothing else of ours.
//
//   Connection  reaches the socket, notices the end, tries again
//   Registry    mirrors nodes, clients, ports, links and metadata as the server announces them
//   Snapshot    turns the mirror into what the port promises
//   OpenNode    a Filter and its FilterLinks, made anew whenever they were lost
//   Capture     one of them for streams and, where it silences, its Silencer
//   Input       one of them for an input device
//   Output      one of them for an output device, or for whichever is the default
#pragma once

#include "platform/machine/AudioServer.h"

#include <memory>

namespace platform::machine {

class LinuxThreads;

/// Starts connecting at once and never fails: where no server is, it is waited for.
///
/// What was opened on it must be gone before the server object goes.
///
/// @param threads  use the broker of this server's library while the server object lives; may be null
std::unique_ptr<AudioServer> MakePipeWireServer(LinuxThreads* threads = nullptr);

}  // namespace platform::machine
