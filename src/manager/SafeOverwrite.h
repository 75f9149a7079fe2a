// Writing a resource of another node so that a failure costs nothing.
//
// Thread-safety: one object belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "QvStd/Stream.h"
#include "manager/ResourceManager.h"

/// The target of a copy between two nodes. The content goes to a hidden neighbour, which Finish
/// moves over the target: a target is the old one or the new one, whole, even when the process is
/// killed.
class TSafeOverwrite
{
public:
    /// `size` is the announced size of the content in bytes.
    TSafeOverwrite(TResourceManager::TMountNode& node, const std::string& id, std::uint64_t size);
    /// Removes what was written unless Finish succeeded.
    ~TSafeOverwrite();
    TSafeOverwrite(const TSafeOverwrite&) = delete;
    TSafeOverwrite& operator=(const TSafeOverwrite&) = delete;

    /// Whether a target is there already.
    bool TargetExists() const { return m_existing && *m_existing; }
    bool IsOpen() const { return m_unfinished; }
    TQvStream& Stream() { return *m_stream; }
    /// Ends the content at the stream's position and puts it in its place, with the permissions of
    /// the target that it replaces. False when anything fails.
    bool Finish();

private:
    TResourceManager::TMountNode& m_node;
    std::string m_id;
    std::string m_neighbour;
    var_a<TQvStream*> m_existing; ///< holds the share lock of a target that is there
    var_a<TQvStream*> m_stream;
    bool m_unfinished = false; ///< the neighbour is there
};
