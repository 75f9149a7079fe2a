// Files and folders that a program wanted to move where they cannot be renamed. It was told to copy
// (EXDEV), and is expected to remove the source when it has done so. The newest ones are
// remembered.
//
// Thread-safety: callable from any thread.
#pragma once

#include <atomic>
#include <deque>
#include <mutex>
#include <string>

class TAwaitedCopies
{
public:
    void Expect(const std::string& sourceId, const std::string& targetId);
    /// The id of the copy of a file, which may lie in an expected folder; "" when none is expected.
    std::string CopyOf(const std::string& id) const;
    /// The source is gone.
    void Forget(const std::string& sourceId);

private:
    struct TCopy
    {
        std::string Source;
        std::string Target;
    };

    mutable std::mutex m_mutex;
    std::deque<TCopy> m_copies;
    std::atomic<bool> m_areNone{true}; ///< most files that are removed were never moved
};
