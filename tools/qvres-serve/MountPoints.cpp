#include "MountPoints.h"

#include <filesystem>

TMountPoints::TMountPoints(const TResourceManager& tree)
{
    m_byNormalId[""].HoldsMounts = true;
    for (const auto& node : tree.MountNodes()) {
        if (node->IsPureVirtual())
            continue;
        std::string id = node->MountPointId();
        const std::string path = node->GetResourceFile(id);
        std::error_code missing;
        const std::string real = std::filesystem::canonical(path, missing).string();
        m_folders.push_back({id, path, missing ? path : real});
        m_byNormalId[QvNormalizeResId(id)].IsMount = true;
        for (bool isBelow = false; !id.empty(); isBelow = true) {
            TMountPoint& point = m_byNormalId[QvNormalizeResId(id)];
            point.HoldsMounts = point.HoldsMounts || isBelow;
            // As in a listing, the first spelling in the table is the one shown.
            if (point.ShownName.empty())
                point.ShownName = QvExtractResName(id);
            id.resize(id.rfind('/'));
        }
    }
}

const TMountPoint* TMountPoints::Find(const std::string& id) const
{
    const auto found = m_byNormalId.find(QvNormalizeResId(id));
    return found == m_byNormalId.end() ? nullptr : &found->second;
}

std::vector<std::string> TMountPoints::NamesIn(const std::string& id) const
{
    const std::string folder = QvNormalizeResId(id);
    std::vector<std::string> names;
    for (const auto& [normalId, point] : m_byNormalId)
        if (!normalId.empty() && normalId.substr(0, normalId.rfind('/')) == folder)
            names.push_back(point.ShownName);
    return names;
}
