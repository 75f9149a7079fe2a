#include "services/XIniAccess.h"

#include "manager/ResourceManager.h"

var_a<TQvXIniStreamReader*> GetResXIniReader(const std::string& resId, TQvProgressHandler* progress)
{
    if (!ResourceManager.IsReachable(resId))
        return {};
    var_a<TQvStream*> stream = ResourceManager.OpenResource(resId, kQvOpenRead, kQvShareAll, 0);
    if (!stream || !*stream)
        return {};
    return make_var<TQvXIniStreamReader>(std::move(stream), true, progress);
}

var_a<TQvXIniStreamReader*> GetResXIniReaderE(const std::string& resId,
                                              TQvProgressHandler* progress)
{
    return make_var<TQvXIniStreamReader>(
        ResourceManager.OpenResourceE(resId, kQvOpenRead, kQvShareAll, 0), true, progress);
}

var_a<TQvXIniStreamWriter*> GetResXIniWriter(const std::string& resId)
{
    if (!ResourceManager.IsReachable(resId))
        return {};
    var_a<TQvStream*> stream = ResourceManager.OpenResource(resId, kQvOpenCreate, kQvShareAll, 0);
    if (!stream || !*stream)
        return {};
    return make_var<TQvXIniStreamWriter>(std::move(stream));
}

var_a<TQvXIniStreamWriter*> GetResXIniWriterE(const std::string& resId)
{
    return make_var<TQvXIniStreamWriter>(
        ResourceManager.OpenResourceE(resId, kQvOpenCreate, kQvShareAll, 0));
}
