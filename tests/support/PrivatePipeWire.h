// PrivatePipeWire: a PipeWire server and its session manager for one test, apart from the user's own.
// Why: the port is tested against the real server, with sinks that come and go, and with real kills.
// It has two sinks: "speakers" (the default) and "headset", stereo, 48 kHz; no sound card is needed.
// Start at the constructor; then Play, and SpeakerProbe for what is heard.
#pragma once

#include "support/ChildProcess.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace support {

class ServerControl;

class PrivatePipeWire {
public:
    enum class Streams { Forgotten, Restored };  // whether the session manager keeps where a stream played

    /// Points this process's environment to a folder of its own and starts the server there; returns when
    /// it has a default sink. Throws where it does not come up.
    ///
    /// Before anything in this process has reached for a server.
    explicit PrivatePipeWire(Streams streams = Streams::Forgotten);
    ~PrivatePipeWire();
    PrivatePipeWire(const PrivatePipeWire&) = delete;
    PrivatePipeWire& operator=(const PrivatePipeWire&) = delete;

    /// Starts what Kill ended; returns when there is a default sink.
    void Start();
    /// Kills the server and its session manager without a warning.
    void Kill();

    /// Pins the quantum (frames a cycle) or the rate (Hz); 0 leaves it to the server. Returns when noted.
    void SetQuantum(unsigned frames);
    void SetRate(unsigned rateHz);

    /// Plugs a sink in; returns when its ports are there. `positions` as in "FL FR". Of the class
    /// "Audio/Source/Virtual" it is an input device instead.
    void LoadSink(const std::string& name, const std::string& positions = "FL FR",
                  const std::string& mediaClass = "Audio/Sink");
    /// Unplugs any sink; returns when it has gone.
    void UnloadSink(const std::string& name);
    void SetDefaultSink(const std::string& name);

    /// Starts corvane-test-app with these options; returns when it plays.
    ChildProcess Play(std::vector<std::string> options);

    /// Starts corvane-test-app as a device with these options, --name among them; returns when the input device is
    /// there.
    ChildProcess PlugMicrophone(std::vector<std::string> options);

    /// Starts the go-between for programs that speak to a PulseAudio server; returns when it listens.
    ChildProcess ServePulse();

    /// The value noted for the node of that name under `key`, as target.object.
    std::optional<std::string> NoteOf(const std::string& nodeName, const std::string& key);
    /// Returns when something, or nothing, is noted for that node under `key`.
    void WaitForNote(const std::string& nodeName, const std::string& key, bool noted = true);
    /// Notes `value` for that node, as a program of the user would.
    void Note(const std::string& nodeName, const std::string& key, const std::string& value);

    /// The server's own folder.
    const std::string& Folder() const { return mFolder; }

private:
    void PrepareEnvironment(Streams streams);

    std::string mFolder;
    std::optional<ChildProcess> mServer;
    std::optional<ChildProcess> mManager;
    std::unique_ptr<ServerControl> mControl;
};

}  // namespace support
