// A profile file that is read for a change: comments and entries that this library does not know
// survive the writing.
//
// Thread-safety: one object belongs to one thread. The lock of the VAR folder is the caller's: he
// holds it from the construction to SaveE.
#pragma once

#include <map>
#include <string>

#include "QvStd/Path.h"
#include "QvStd/Var.h"
#include "QvStd/XIniTree.h"
#include "profiles/ResourceProfile.h"

using TQvProfileNodes = std::map<std::string, TQvResourceProfile::TNode>;

class TQvProfileFile
{
public:
    /// Reads the file; a missing one has no content yet. Throws a TQvMessage that names the file
    /// when it cannot be read, is malformed or is no profile.
    explicit TQvProfileFile(const TQvPath& path);

    bool Exists() const { return m_exists; }
    /// What loading the file gives; empty without a file.
    const TQvResourceProfile& Content() const { return m_content; }
    /// Makes the file's "remote" and mounts those of `profile`, in the order in which
    /// TQvResourceProfile::SaveE writes them; a file that is new, or holds nothing else, is what
    /// that writes. A comment goes with the mount that it stands before, and stays when the mount
    /// goes. The file is replaced as a whole, synced, and only when it changes. Throws a TQvMessage
    /// on failure; the old file is left then.
    void SaveE(const TQvResourceProfile& profile);

private:
    TQvPath m_path;
    bool m_exists = false;
    std::string m_text;
    var_a<TQvXIniTree*> m_tree;
    TQvResourceProfile m_content;
};

/// Whether both describe the same mount; the volume does not count.
bool QvIsSameMount(const TQvResourceProfile::TNode& a, const TQvResourceProfile::TNode& b);

/// `others` with what has changed from `before` to `own`: where both sides changed a mount, the own
/// change counts.
TQvProfileNodes QvMergeProfileNodes(const TQvProfileNodes& before, const TQvProfileNodes& own,
                                    TQvProfileNodes others);

/// The mounts of the file, under the keys that `own` has for them; those that are new to `own` are
/// under the keys of the file.
TQvProfileNodes QvFollowProfileNodes(const TQvProfileNodes& own, const TQvProfileNodes& file);
