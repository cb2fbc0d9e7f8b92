#pragma once

class CVJsonWriter;
class CVSpanRecord;
class CVTrack;
struct CVLocationNode;
struct CVPlaylist;

// Records as the command-line tool prints them: every present attribute under its name.
namespace CVRecordJson {

void writeTrack(CVJsonWriter &json, const CVTrack &track);
void writePlaylist(CVJsonWriter &json, const CVPlaylist &playlist);
void writeLocationNode(CVJsonWriter &json, const CVLocationNode &node);
// Dates as ISO 8601 UTC texts ("2026-11-21T21:05:07Z").
void writeSpanRecord(CVJsonWriter &json, const CVSpanRecord &record);

} // namespace CVRecordJson
