#include "MountPoints.h"

TMountPoints::TMountPoints(const TResourceManager& tree)
{
    m_byNormalId[""].HoldsMounts = true;
    for (const auto& node : tree.MountNodes()) {
        if (node->IsPureVirtual())
            continue;
        std::string id = node->MountPointId();
        m_folders.push_back(node->GetResourceFile(id));
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
