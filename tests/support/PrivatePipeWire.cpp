#include "support/PrivatePipeWire.h"

#include "support/ServerControl.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <stdexcept>

namespace support {

namespace {

using Registry = ServerControl::Registry;
using platform::machine::pipewire::Metadata;

// Numbers of nodes are the server's, and tests know names.
const platform::machine::pipewire::Node* FindNode(Registry& registry, const std::string& name)
{
    for (const auto& [id, node] : registry.Nodes())
        if (node->Name() == name) return node.get();
    return nullptr;
}

bool HasPorts(Registry& registry, const std::string& name)
{
    const auto* node = FindNode(registry, name);
    return node != nullptr && !registry.PortsOf(node->mID, node->IsInputDevice()).empty();
}

bool HasNote(const Metadata* metadata, uint32_t subject, const std::string& key, const std::string& text)
{
    const Metadata::Value* value = metadata == nullptr ? nullptr : metadata->Find(subject, key);
    return value != nullptr && value->mText == text;
}

void Pin(ServerControl& control, const std::string& key, unsigned number)
{
    const Metadata::Value value{"", std::to_string(number)};
    control.WaitUntil("settings", [](Registry& registry) { return registry.Settings() != nullptr; });
    control.With([&](Registry& registry) { registry.Settings()->Set(0, key, &value); });
    control.WaitUntil(key, [&](Registry& registry) { return HasNote(registry.Settings(), 0, key, value.mText); });
}

}  // namespace

PrivatePipeWire::PrivatePipeWire(Streams streams)
{
    std::string pattern = "/tmp/cvn-XXXXXX";  // short: a socket's path has a limit of 108 bytes
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder for a private server");
    mFolder = pattern;
    PrepareEnvironment(streams);
    Start();
}

PrivatePipeWire::~PrivatePipeWire()
{
    Kill();
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
}

void PrivatePipeWire::PrepareEnvironment(Streams streams)
{
    const std::string conf = CompanionFolder() + "/conf/";
    const auto set = [](const char* name, const std::string& value) { setenv(name, value.c_str(), 1); };
    for (const char* name : {"XDG_RUNTIME_DIR", "PIPEWIRE_RUNTIME_DIR", "HOME"}) set(name, mFolder);
    set("XDG_STATE_HOME", mFolder + "/state");
    set("XDG_CONFIG_HOME", mFolder + "/config");
    set("XDG_DATA_HOME", mFolder + "/data");
    set("XDG_CACHE_HOME", mFolder + "/cache");
    set("PIPEWIRE_CONFIG_DIR", conf + "pipewire");
    set("WIREPLUMBER_CONFIG_DIR", conf + (streams == Streams::Restored ? "wireplumber-restore" : "wireplumber"));
    set("WIREPLUMBER_DATA_DIR", "/usr/share/wireplumber");
    set("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    set("LC_ALL", "C.UTF-8");
    unsetenv("PIPEWIRE_REMOTE");
    unsetenv("PULSE_SERVER");
}

void PrivatePipeWire::Start()
{
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    setenv("PIPEWIRE_NOTIFICATION_FD", std::to_string(ready[1]).c_str(), 1);
    mServer.emplace(std::vector<std::string>{"pipewire"}, ready[1]);
    unsetenv("PIPEWIRE_NOTIFICATION_FD");
    close(ready[1]);
    ReadLine(ready[0]);
    close(ready[0]);
    mManager.emplace(std::vector<std::string>{"wireplumber"});
    mControl = std::make_unique<ServerControl>();
    mControl->WaitUntil("a default sink", [](Registry& registry) {
        return registry.Defaults() != nullptr && registry.Defaults()->Find(0, "default.audio.sink") != nullptr;
    });
}

void PrivatePipeWire::Kill()
{
    mControl.reset();
    if (mManager) kill(mManager->ID(), SIGSTOP);  // so that it does not remark on the server's end
    mServer.reset();
    mManager.reset();
}

void PrivatePipeWire::SetQuantum(unsigned frames)
{
    Pin(*mControl, "clock.force-quantum", frames);
}

void PrivatePipeWire::SetRate(unsigned rateHz)
{
    Pin(*mControl, "clock.force-rate", rateHz);
}

void PrivatePipeWire::LoadSink(const std::string& name, const std::string& positions, const std::string& mediaClass)
{
    mControl->With([&](Registry& registry) {
        pw_properties* properties = pw_properties_new(
            PW_KEY_FACTORY_NAME, "support.null-audio-sink", PW_KEY_NODE_NAME, name.c_str(), PW_KEY_NODE_DESCRIPTION,
            name.c_str(), PW_KEY_MEDIA_CLASS, mediaClass.c_str(), "audio.position", ("[ " + positions + " ]").c_str(),
            PW_KEY_AUDIO_RATE, "48000", PW_KEY_PRIORITY_SESSION, "1000", PW_KEY_PRIORITY_DRIVER, "1000",
            PW_KEY_OBJECT_LINGER, "true", nullptr);
        void* sink = pw_core_create_object(registry.Core(), "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE,
                                           &properties->dict, 0);
        if (sink != nullptr) pw_proxy_destroy(static_cast<pw_proxy*>(sink));  // it lingers
        pw_properties_free(properties);
    });
    mControl->WaitUntil("sink " + name, [&](Registry& registry) { return HasPorts(registry, name); });
}

void PrivatePipeWire::UnloadSink(const std::string& name)
{
    mControl->With([&](Registry& registry) {
        if (const auto* node = FindNode(registry, name)) registry.Destroy(node->mID);
    });
    mControl->WaitUntil("no sink " + name, [&](Registry& registry) { return FindNode(registry, name) == nullptr; });
}

void PrivatePipeWire::SetDefaultSink(const std::string& name)
{
    const Metadata::Value value{"Spa:String:JSON", "{ \"name\": \"" + name + "\" }"};
    mControl->With([&](Registry& registry) { registry.Defaults()->Set(0, "default.configured.audio.sink", &value); });
    mControl->WaitUntil("default sink " + name, [&](Registry& registry) {
        return registry.Defaults() != nullptr &&
               registry.Defaults()->Text("default.audio.sink").find("\"" + name + "\"") != std::string::npos;
    });
}

ChildProcess PrivatePipeWire::Play(std::vector<std::string> options)
{
    options.insert(options.begin(), "./corvane-test-app");
    ChildProcess application(options);
    application.ReadLine();
    return application;
}

ChildProcess PrivatePipeWire::PlugMicrophone(std::vector<std::string> options)
{
    options.push_back("--device");
    ChildProcess microphone = Play(options);
    const std::string name = *std::next(std::ranges::find(options, "--name"));
    mControl->WaitUntil("input " + name, [&](Registry& registry) { return HasPorts(registry, name); });
    return microphone;
}

ChildProcess PrivatePipeWire::ServePulse()
{
    const std::string folder = mFolder + "/pulse";
    std::filesystem::create_directory(folder);
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, folder.c_str(), IN_CREATE);
    ChildProcess server({"pipewire-pulse"});
    setenv("PULSE_SERVER", ("unix:" + folder + "/native").c_str(), 1);
    while (!std::filesystem::is_socket(folder + "/native")) {
        char event[1024];
        pollfd waiting{watch, POLLIN, 0};
        if (poll(&waiting, 1, 10'000) <= 0) throw std::runtime_error("pipewire-pulse does not listen");
        [[maybe_unused]] const ssize_t told = read(watch, event, sizeof(event));
    }
    close(watch);
    return server;
}

std::optional<std::string> PrivatePipeWire::NoteOf(const std::string& nodeName, const std::string& key)
{
    std::optional<std::string> note;
    mControl->With([&](Registry& registry) {
        const auto* node = FindNode(registry, nodeName);
        const Metadata::Value* value = node == nullptr ? nullptr : registry.Defaults()->Find(node->mID, key);
        if (value != nullptr) note = value->mText;
    });
    return note;
}

void PrivatePipeWire::WaitForNote(const std::string& nodeName, const std::string& key, bool noted)
{
    mControl->WaitUntil("note " + key, [&](Registry& registry) {
        const auto* node = FindNode(registry, nodeName);
        return node != nullptr && registry.Defaults() != nullptr &&
               (registry.Defaults()->Find(node->mID, key) != nullptr) == noted;
    });
}

void PrivatePipeWire::Note(const std::string& nodeName, const std::string& key, const std::string& value)
{
    const Metadata::Value noted{"Spa:String", value};
    uint32_t subject = PW_ID_ANY;
    mControl->WaitUntil("node " + nodeName, [&](Registry& registry) {
        const auto* node = FindNode(registry, nodeName);
        if (node != nullptr) subject = node->mID;
        return node != nullptr;
    });
    mControl->With([&](Registry& registry) { registry.Defaults()->Set(subject, key, &noted); });
    mControl->WaitUntil("note " + key,
                        [&](Registry& registry) { return HasNote(registry.Defaults(), subject, key, value); });
}

}  // namespace support
