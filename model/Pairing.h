#pragma once

#include "Records.h"

#include <QImage>

#include <optional>
#include <set>
#include <string>

namespace harkline {

// An open pairing offer: what the daemon gave us to show, until when it is valid, and which
// phones were already paired when it was requested (so a new one can be told apart).
struct Pairing
{
    std::string payload;  // as the daemon sent it; never empty
    QImage image;         // the payload as a QR code; a null image when none could be made
    DaemonTime expires{}; // wall-clock moment the offer lapses
    std::set<std::string> known;
    std::optional<std::string> pairedWith; // name of the phone that paired during this offer

    bool operator==(const Pairing&) const = default;
};

} // namespace harkline
