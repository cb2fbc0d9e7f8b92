#pragma once

#include <QString>

// A dependently spanned track as the helper keeps it: only what the links need, so that a
// large history costs little memory.
struct CVHDependentTrack {
    QString persistentID;
    QString name;
    QString playerLocation; // where the player looks: the link's place
    QString spanLocation; // where the bytes are: the link's target
};
