#include "Library/CVSpanRecord.h"

using namespace Qt::StringLiterals;

namespace {

constexpr std::array<QLatin1StringView, kCVSpanAttrCount> kNames = {
    "PersistentID"_L1,
    "LibraryPersistentID"_L1,
    "TrackID"_L1,
    "TrackNumber"_L1,
    "DiscNumber"_L1,
    "MediaType"_L1,
    "Name"_L1,
    "Artist"_L1,
    "Album"_L1,
    "AlbumArtist"_L1,
    "SortName"_L1,
    "SortArtist"_L1,
    "SortAlbum"_L1,
    "Kind"_L1,
    "Size"_L1,
    "TotalTime"_L1,
    "ITunesLocation"_L1,
    "OriginalLocation"_L1,
    "SpanLocation"_L1,
    "LastSpanLocation"_L1,
    "BaseSpanPath"_L1,
    "LastSpanDate"_L1,
    "LastRestoreDate"_L1,
    "FullSpan"_L1,
    "SymSpan"_L1,
    "ItemIsRestored"_L1,
    "RemovedFromITunes"_L1,
    "NeedsVerification"_L1,
};

} // namespace

QLatin1StringView CVSpanRecord::name(CVSpanAttr a)
{
    return kNames[std::size_t(a)];
}

CVSpanAttrType CVSpanRecord::type(CVSpanAttr a)
{
    switch (a) {
    case CVSpanAttr::TrackID:
    case CVSpanAttr::TrackNumber:
    case CVSpanAttr::DiscNumber:
        return CVSpanAttrType::Integer;
    case CVSpanAttr::Size:
    case CVSpanAttr::TotalTime:
        return CVSpanAttrType::Real;
    case CVSpanAttr::LastSpanDate:
    case CVSpanAttr::LastRestoreDate:
        return CVSpanAttrType::Date;
    case CVSpanAttr::FullSpan:
    case CVSpanAttr::SymSpan:
    case CVSpanAttr::ItemIsRestored:
    case CVSpanAttr::RemovedFromITunes:
    case CVSpanAttr::NeedsVerification:
        return CVSpanAttrType::Boolean;
    default:
        return CVSpanAttrType::Text;
    }
}

void CVSpanRecord::setValue(CVSpanAttr a, const QVariant &v)
{
    QVariant &slot = m_values[std::size_t(a)];
    if (slot.isValid() == v.isValid() && slot == v)
        return;
    slot = v;
    m_changed = true;
}
