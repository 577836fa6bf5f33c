#include "Pairing.h"

#include "QrCode.h"

#include <QCoreApplication>

#include <algorithm>

namespace harkline {

std::vector<PairedDevice> loadDevices()
{
    return DaemonClient::devicesFrom(DaemonClient::ok(DaemonClient::devices()));
}

PairingRequest requestPairing()
{
    PairingRequest result;
    result.devices = loadDevices();
    result.offer = DaemonClient::offerFrom(DaemonClient::ok(DaemonClient::pair()));
    return result;
}

Pairing openPairing(DaemonClient::PairingOffer offer, const std::vector<PairedDevice>& before,
                    DaemonTime now)
{
    Pairing pairing;
    pairing.payload = std::move(offer.payload);
    pairing.image = qrCodeImage(pairing.payload);
    pairing.expires = now + std::chrono::duration<double>(static_cast<double>(offer.expiresIn));
    for (const PairedDevice& device : before)
        pairing.known.insert(device.id);
    return pairing;
}

bool pairingWatched(const Pairing& pairing, DaemonTime now)
{
    return !pairing.pairedWith && pairing.expires > now;
}

std::optional<PairedDevice> newlyPaired(const Pairing& offer,
                                        const std::vector<PairedDevice>& devices)
{
    const auto fresh = std::find_if(devices.begin(), devices.end(), [&](const PairedDevice& d) {
        return !offer.known.contains(d.id);
    });
    if (fresh == devices.end())
        return std::nullopt;
    return *fresh;
}

QString pairingFailedNotice()
{
    return QCoreApplication::translate("Pairing", "Could not get a pairing code from the service.");
}

} // namespace harkline
