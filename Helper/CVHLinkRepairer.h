#pragma once

#include "CVHDependentTrack.h"

#include <QString>

#include <functional>

// Makes the player's location of a dependent track a symbolic link to its span location.
// Only links are ever made, replaced or left; a real file or folder at the player's location
// is never touched. A link is made under a temporary name and renamed into place, so the
// player sees either the old state or the finished link.
class CVHLinkRepairer {
public:
    enum class Outcome {
        Made, // there was nothing, now there is the link
        Corrected, // a link pointing elsewhere now points at the span file
        AlreadyLinked,
        SpanMissing, // the span file is not there (its drive is mounted, or it is on "/")
        DriveMissing, // the drive of the span file, or of the player's location, is not mounted
        RealItemInPlace, // a file or folder of its own stands at the player's location
        Failed,
    };

    struct Result {
        Outcome outcome = Outcome::Failed;
        QString error;
        bool playable() const
        {
            return outcome == Outcome::Made || outcome == Outcome::Corrected || outcome == Outcome::AlreadyLinked
                || outcome == Outcome::RealItemInPlace;
        }
    };

    // Whether a drive root is mounted now; by default every drive root counts as mounted.
    void setMountCheck(std::function<bool(const QString &driveRoot)> isMounted) { m_isMounted = std::move(isMounted); }

    Result repair(const CVHDependentTrack &track) const;

    // Looks only: whether the player can play the track now.
    Result check(const CVHDependentTrack &track) const;

private:
    bool driveMissing(const QString &path) const;
    Result placeLink(const QString &place, const QString &target, bool replacing) const;

    std::function<bool(const QString &)> m_isMounted;
};
