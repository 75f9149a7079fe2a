// The content of a profile file that is changed: comments and entries that this library does not
// define are kept.
//
// Thread-safety: one object belongs to one thread.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "QvStd/Path.h"
#include "QvStd/Var.h"
#include "QvStd/XIniTree.h"
#include "profiles/ResourceProfile.h"

using TQvProfileNodes = std::map<std::string, TQvResourceProfile::TNode>;

class TQvProfileText
{
public:
    /// `text` is the content of the file; without a value there is no file yet. Throws a TQvMessage
    /// that names the file when the text is malformed or no profile.
    TQvProfileText(const TQvPath& file, const std::optional<std::string>& text);

    bool Exists() const { return m_exists; }
    /// What loading the file gives; empty without a file.
    const TQvResourceProfile& Content() const { return m_content; }
    /// The text with "remote" and the mounts of `profile`, in the order in which
    /// TQvResourceProfile::SaveE writes them; a new text, or one with nothing else in it, equals
    /// what that writes. A comment moves with the mount that follows it, and stays when the mount
    /// is removed.
    std::string With(const TQvResourceProfile& profile);

private:
    bool m_exists;
    var_a<TQvXIniTree*> m_tree;
    TQvResourceProfile m_content;
};

/// Whether both describe the same mount; the volume is not compared.
bool QvIsSameMount(const TQvResourceProfile::TNode& a, const TQvResourceProfile::TNode& b);

/// `others` with the changes from `before` to `own`: where both sides changed a mount, the own
/// change wins.
TQvProfileNodes QvMergeProfileNodes(const TQvProfileNodes& before, const TQvProfileNodes& own,
                                    TQvProfileNodes others);

/// The mounts of the file under the keys of `own`; mounts that `own` does not have under the keys
/// of the file.
TQvProfileNodes QvFollowProfileNodes(const TQvProfileNodes& own, const TQvProfileNodes& file);
