// Graphs: units by the number of their node. A node's number is its place, from 1 on.
#include "platform/audio/units/Components.h"

#include <memory>
#include <new>
#include <vector>

using platform::audio::units::Unit;

struct OpaqueAUGraph {
    struct Node {
        Component mComponent;
        std::unique_ptr<Unit> mUnit;  // while the graph is open
    };

    Node* Find(AUNode node) noexcept
    {
        return node >= 1 && size_t(node) <= mNodes.size() ? &mNodes[size_t(node) - 1] : nullptr;
    }
    Unit* FindUnit(AUNode node) noexcept
    {
        Node* const found = Find(node);
        return found ? found->mUnit.get() : nullptr;
    }

    std::vector<Node> mNodes;
    bool mInitialized = false;
};

OSStatus NewAUGraph(AUGraph* graph)
{
    if (!graph) return kAudio_ParamError;
    *graph = new (std::nothrow) OpaqueAUGraph;
    return *graph ? 0 : kAudio_MemFullError;
}

OSStatus DisposeAUGraph(AUGraph graph)
{
    if (!graph) return kAudio_ParamError;
    delete graph;
    return 0;
}

OSStatus AUGraphNewNode(AUGraph graph, const ComponentDescription* description, UInt32 classDataSize, const void*,
                        AUNode* node)
{
    if (!graph || !description || !node || classDataSize != 0) return kAudio_ParamError;
    ComponentDescription wanted = *description;
    const Component component = FindNextComponent(nullptr, &wanted);
    if (!component) return kAudio_ParamError;
    try {
        graph->mNodes.push_back({component, nullptr});
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    }
    *node = AUNode(graph->mNodes.size());
    return 0;
}

OSStatus AUGraphOpen(AUGraph graph)
{
    if (!graph) return kAudio_ParamError;
    try {
        for (auto& node : graph->mNodes) {
            if (!node.mUnit) node.mUnit = node.mComponent->mOpen();
        }
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    }
    return 0;
}

OSStatus AUGraphClose(AUGraph graph)
{
    if (!graph) return kAudio_ParamError;
    for (auto& node : graph->mNodes) node.mUnit.reset();
    graph->mInitialized = false;
    return 0;
}

OSStatus AUGraphGetNodeInfo(AUGraph graph, AUNode node, ComponentDescription* description, UInt32* classDataSize,
                            void** classData, AudioUnit* unit)
{
    const auto* const found = graph ? graph->Find(node) : nullptr;
    if (!found) return kAudio_ParamError;
    if (description) *description = found->mComponent->mDescription;
    if (classDataSize) *classDataSize = 0;
    if (classData) *classData = nullptr;
    if (unit) *unit = found->mUnit.get();
    return 0;
}

OSStatus AUGraphConnectNodeInput(AUGraph graph, AUNode source, UInt32 sourceOutput, AUNode destination,
                                 UInt32 destinationInput)
{
    Unit* const from = graph ? graph->FindUnit(source) : nullptr;
    Unit* const to = graph ? graph->FindUnit(destination) : nullptr;
    return from && to ? to->Connect(destinationInput, *from, sourceOutput) : kAudio_ParamError;
}

OSStatus AUGraphInitialize(AUGraph graph)
{
    if (!graph) return kAudio_ParamError;
    for (auto& node : graph->mNodes) {
        if (!node.mUnit) return kAudioUnitErr_Uninitialized;
        if (const OSStatus error = node.mUnit->Initialize()) return error;
    }
    graph->mInitialized = true;
    return 0;
}

OSStatus AUGraphUninitialize(AUGraph graph)
{
    if (!graph) return kAudio_ParamError;
    for (auto& node : graph->mNodes) {
        if (node.mUnit) node.mUnit->Uninitialize();
    }
    graph->mInitialized = false;
    return 0;
}

OSStatus AUGraphStart(AUGraph graph)
{
    if (!graph) return kAudio_ParamError;
    return graph->mInitialized ? 0 : kAudioUnitErr_Uninitialized;
}
