#pragma once

#include "DaemonClient.h"
#include "Records.h"

#include <QImage>
#include <QString>

#include <optional>
#include <set>
#include <string>
#include <vector>

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

// The rules of pairing, shared by the companion (AppModel) and harklinectl. The functions that
// block talk to the daemon; call them off the main thread of a program with a user interface.

// The paired phones in the daemon's order; empty when the request fails.
std::vector<PairedDevice> loadDevices();

// What asking for an offer brings back: the phones paired before the code existed (any other
// phone that shows up later paired with this code), then the offer, none when the daemon gave
// none. Blocks: "devices" first, then "pair".
struct PairingRequest
{
    std::vector<PairedDevice> devices;
    std::optional<DaemonClient::PairingOffer> offer;
};
PairingRequest requestPairing();

// The offer as opened at `now`: its QR image, its end, the ids known before it.
Pairing openPairing(DaemonClient::PairingOffer offer, const std::vector<PairedDevice>& before,
                    DaemonTime now);

// Whether a poll for the new phone is still worth sending: the offer is neither answered nor
// past its end.
bool pairingWatched(const Pairing& pairing, DaemonTime now);

// The phone that paired with `offer`, read from a fresh list: the first one, in the daemon's
// order, whose id was not known when the offer was requested. None when there is none.
std::optional<PairedDevice> newlyPaired(const Pairing& offer,
                                        const std::vector<PairedDevice>& devices);

// "Could not get a pairing code from the service."
QString pairingFailedNotice();

} // namespace harkline
