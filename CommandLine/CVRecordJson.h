#pragma once

class CVJsonWriter;
class CVTrack;
struct CVLocationNode;
struct CVPlaylist;

// Records as the command-line tool prints them: every present attribute under its name.
namespace CVRecordJson {

void writeTrack(CVJsonWriter &json, const CVTrack &track);
void writePlaylist(CVJsonWriter &json, const CVPlaylist &playlist);
void writeLocationNode(CVJsonWriter &json, const CVLocationNode &node);

} // namespace CVRecordJson
