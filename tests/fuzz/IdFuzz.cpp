// Ids: the parts of an id make the id again, compacting is stable and never climbs, a relative id
// leads back, and the check that also normalizes agrees with the plain one.
#include "Fuzz.h"

#include "QvStd/RegExp.h"
#include "resid/NormalResId.h"
#include "resid/ResId.h"

namespace
{
void CheckParts(const std::string& id)
{
    Require(QvExtractResPath(id) + QvExtractResName(id) == id, "path and name make the id");
    // Names go through a path of the platform, to which a backslash is a separator.
    if (id.find('\\') == std::string::npos)
        Require(QvExtractResPathNameOnly(id) + QvExtractResExt(id) == id,
                "an extension is the rest");
    const std::string compact = QvCompactResId(id);
    Require(QvCompactResId(compact) == compact, "compacting is stable");
    Require(compact.size() <= id.size(), "compacting adds nothing");
    const TNormalResId normal(id, true);
    Require(normal.IsValid() == QvIsValidResId(id, true), "both checks agree");
    Require(normal.Text() == QvNormalizeResId(id), "both normal forms agree");
}

void CheckRelative(const std::string& id, const std::string& base)
{
    const std::string folder = QvIncludeTrailingSlash(base);
    if (!QvIsValidResId(id, true) || !QvIsValidResId(folder, true) || id.empty() || folder.empty())
        return;
    const std::string target = QvCompactResId(id);
    // An id above the root does not resolve, and a last ".." is never resolved.
    if (target.find("..") != std::string::npos || folder.find("..") != std::string::npos)
        return;
    const std::string back = QvMergeResId(folder, GetRelativeResId(target, folder));
    Require(QvNormalizeResId(back) == QvNormalizeResId(target), "a relative id leads back");
}
} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string input(reinterpret_cast<const char*>(data), size);
    const std::string id = TakeText(&input);
    const std::string base = TakeText(&input);
    CheckParts(id);
    CheckParts(input); // with bytes 0
    CheckRelative(id, base);
    CRegExp expression;
    const bool isMask = expression.SetExpr(QvResSearchMaskToRegExpPattern(base));
    const bool isMatch = expression.Parse(QvNormalizeResId(id), nullptr);
    Require(isMask || !isMatch, "what is no mask matches nothing");
    return 0;
}
