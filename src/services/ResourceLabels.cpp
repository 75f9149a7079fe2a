#include "services/ResourceLabels.h"

#include <exception>

#include "QvStd/Message.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniTree.h"
#include "QvStd/XIniWriter.h"
#include "manager/ResourceManager.h"
#include "resid/ResId.h"

namespace
{
constexpr char kSection[] = "resource_label";

[[noreturn]] void ThrowLogicError(const char* function, int line, const char* expression)
{
    throw TQvMessage("@Internal logic error in %1% (%2%): (%3%)==false.")
        << function << line << expression;
}

/// False unless the id is that of a resource: a folder, or an id that is not valid, has no label.
bool CurrentState(const std::string& resId, TQvResAttrib* attrib)
{
    return QvIsValidResId(resId, true) && ResourceManager.GetResourceAttr(resId, attrib) &&
           attrib->Kind == kResResource;
}

bool Matches(const TQvResourceLabel& label, const TQvResAttrib& attrib)
{
    return label.Time == attrib.UpdateTime && label.Size == attrib.Size;
}

var_a<TQvStream*> OpenMetadata(const std::string& resId, qvOpenMode mode)
{
    if (!QvIsValidResId(resId, true))
        return {};
    return ResourceManager.OpenResourceMeta(resId, mode, kQvShareAll);
}

bool PutLabel(const var_a<TQvXIniTree*>& tree, const TQvResourceLabel& label)
{
    TQvXIniTreeWriter writer(tree);
    const int section = writer.FindCreateF(kSection, TQvXIniEntry::Kind::Section);
    return writer.OpenSection(section) && label.Save(&writer) && writer.ExitSection();
}

/// Writes over the old document and cuts behind the new one, never the other way round: until the
/// last step every byte of the old document that was not written over is still there.
bool Rewrite(TQvStream& stream, const TQvXIniTree& tree)
{
    return stream.setPosition(0) && WriteQvXIniTree(&stream, tree) &&
           stream.setSize(stream.getPosition());
}

/// A full disk must not cost what others keep in the sidecar. What was there has its place on the
/// disk, so that it can be put back.
void PutBack(TQvStream& stream, const std::string& document)
{
    if (stream.setPosition(0) && stream.Write(document.data(), document.size()) == document.size())
        stream.setSize(document.size());
}
} // namespace

bool ComputeResResourceLabel(const std::string& resId, TQvResourceLabel* label, bool computeCRC)
{
    if (label == nullptr)
        ThrowLogicError("bool ComputeResResourceLabel(const std::__cxx11::string &, "
                        "TQvResourceLabel *, bool)",
                        __LINE__, "rlabel");
    label->Reset();
    TQvResAttrib attrib;
    if (!CurrentState(resId, &attrib))
        return false;
    label->Time = attrib.UpdateTime;
    const var_a<TQvStream*> stream =
        ResourceManager.OpenResource(resId, kQvOpenRead, kQvShareAll, 0);
    if (!stream || !*stream)
        return false;
    label->Size = stream->getSize();
    if (label->Size == TQvStream::invalid_value64)
        return false;
    if (!computeCRC)
        return true;
    label->ComputeCRC(stream.get());
    return stream->getError() == 0; // the checksum of a part is none
}

bool ComputeResResourceLabelSC1(TQvStream* stream, TQvResourceLabel* label)
{
    if (label == nullptr)
        ThrowLogicError("bool ComputeResResourceLabelSC1(TQvStream *, TQvResourceLabel *)",
                        __LINE__, "rlabel");
    label->Reset();
    label->Size = stream->getSize();
    if (!stream->setPosition(0))
        return false;
    label->ComputeCRC(stream);
    return label->Size != TQvStream::invalid_value64;
}

bool ComputeResResourceLabelSC2(const std::string& resId, TQvResourceLabel* label)
{
    if (label == nullptr)
        ThrowLogicError("bool ComputeResResourceLabelSC2(const std::__cxx11::string &, "
                        "TQvResourceLabel *)",
                        __LINE__, "rlabel");
    label->Time = TQvDateTime();
    TQvResAttrib attrib;
    if (!CurrentState(resId, &attrib))
        return false;
    label->Time = attrib.UpdateTime;
    return true;
}

bool WeakCheckResResourceLabel(const TQvResourceLabel& label, const std::string& resId)
{
    TQvResAttrib attrib;
    return CurrentState(resId, &attrib) && Matches(label, attrib);
}

bool StrongCheckResResourceLabel(const TQvResourceLabel& label, const std::string& resId,
                                 TQvStream* stream)
{
    TQvResAttrib attrib;
    if (label.Size != stream->getSize() || !CurrentState(resId, &attrib) ||
        label.Time != attrib.UpdateTime || !stream->setPosition(0))
        return false;
    const std::uint64_t crc = ComputePartialCRC(stream);
    stream->setPosition(0);
    return label.CRC == crc;
}

const char* MetadataResourceLabelSectionName()
{
    return kSection;
}

bool GetResResourceLabel(const std::string& resId, TQvResourceLabel* label, bool trustGiven)
{
    if (label == nullptr)
        ThrowLogicError("bool GetResResourceLabel(const std::__cxx11::string &, TQvResourceLabel "
                        "*, bool)",
                        __LINE__, "rlabel");
    TQvResAttrib attrib;
    if (!CurrentState(resId, &attrib))
        return false;
    if (trustGiven && Matches(*label, attrib))
        return true;
    TQvResourceLabel current;
    if (!ReadResResourceLabel(resId, &current) || !Matches(current, attrib)) {
        if (!ComputeResResourceLabel(resId, &current, true))
            return false;
        try {
            WriteResResourceLabel(resId, current);
        } catch (const std::exception&) {
            // Storing only spares the next caller the checksum: the label is good without it.
        }
    }
    *label = current;
    return true;
}

bool ReadResResourceLabel(const std::string& resId, TQvResourceLabel* label)
{
    if (label == nullptr)
        ThrowLogicError("bool ReadResResourceLabel(const std::__cxx11::string &, "
                        "TQvResourceLabel *)",
                        __LINE__, "rlabel");
    const var_a<TQvStream*> stream = OpenMetadata(resId, kQvOpenRead);
    if (!stream)
        return false;
    TQvXIniStreamReader reader(stream);
    const TQvXIniSection section = reader.EnterSectionS(kSection);
    TQvResourceLabel stored;
    if (section == nullptr || !stored.Load(&reader))
        return false;
    reader.ExitSection(section);
    if (reader.ParseError())
        return false;
    *label = stored;
    return true;
}

bool WriteResResourceLabel(const std::string& resId, const TQvResourceLabel& label)
{
    const var_a<TQvStream*> stream = OpenMetadata(resId, kQvOpenReadWrite);
    if (!stream)
        return false;
    const std::uint64_t size = stream->getSize();
    if (size == TQvStream::invalid_value64)
        return false;
    const var_a<TQvXIniTree*> tree =
        size == 0 ? make_var<TQvXIniTree>() : ReadQvXIniTree(stream.get());
    if (!tree)
        ThrowLogicError("bool WriteResResourceLabel(const std::__cxx11::string &, const "
                        "TQvResourceLabel &)",
                        __LINE__, "tree");
    const std::string old = QvFormatXIniTree(*tree);
    if (!PutLabel(tree, label))
        return false;
    if (!Rewrite(*stream, *tree)) {
        PutBack(*stream, old);
        return false;
    }
    return stream->Close();
}
