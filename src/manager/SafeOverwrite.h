// Writing a resource of another node so that a failure costs nothing.
//
// Thread-safety: one object belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "QvStd/Stream.h"
#include "manager/ResourceManager.h"

/// The target of a copy between two nodes. A target that is not there yet is written in place and
/// removed when the copy does not finish. One that is there keeps its content until the end: the
/// copy goes to a hidden neighbour, which Finish moves over it.
class TSafeOverwrite
{
public:
    /// `size` is the announced size of the content in bytes.
    TSafeOverwrite(TResourceManager::TMountNode& node, const std::string& id, std::uint64_t size);
    /// Removes what was written unless Finish succeeded.
    ~TSafeOverwrite();
    TSafeOverwrite(const TSafeOverwrite&) = delete;
    TSafeOverwrite& operator=(const TSafeOverwrite&) = delete;

    /// Whether a target is there, which keeps its content until Finish.
    bool TargetExists() const { return m_writtenId != m_id; }
    bool IsOpen() const { return m_unfinished; }
    TQvStream& Stream() { return *m_stream; }
    /// Closes the stream and puts the content in its place; false when either fails.
    bool Finish();

private:
    TResourceManager::TMountNode& m_node;
    std::string m_id;
    std::string m_writtenId;      ///< the resource itself or its hidden neighbour
    var_a<TQvStream*> m_existing; ///< holds the share lock of a target that is there
    var_a<TQvStream*> m_stream;
    bool m_unfinished = false; ///< something was written that is not whole
};
