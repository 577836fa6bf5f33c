// Reply bytes as the daemon link reads them, through the strict parse and the command table's
// readers, to the texts the panel would show for them. Any crash, sanitizer report, exception or
// hang on the way is a bug: none of these steps may fail on hostile input.
#include "DaemonClient.h"
#include "HeaderView.h"
#include "PhoneRow.h"
#include "RelativeTime.h"
#include "SessionsView.h"
#include "StatusSymbol.h"

#include <QApplication>

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace harkline;

namespace {
QApplication* app = nullptr;
ui::SessionsView* sessionsView = nullptr;
ui::PhoneRow* phoneRow = nullptr;
} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    app = new QApplication(*argc, *argv);
    sessionsView = new ui::SessionsView;
    sessionsView->resize(312, 300);
    phoneRow = new ui::PhoneRow;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const Json parsed = parseReply(bytes);
    // A bad reply ends the exchange here. Past it, the reply goes on as ok() would hand it over
    // (its "ok" plays no part in what follows).
    if (parsed.is_discarded() || !parsed.is_object())
        return 0;
    const std::optional<Json> reply = parsed;

    const DaemonStatus status(parsed);
    const auto devices = DaemonClient::devicesFrom(reply);
    const auto sessions = DaemonClient::sessionsFrom(reply);
    (void)DaemonClient::offerFrom(reply);
    (void)DaemonClient::connectedFrom(reply);

    (void)statusSymbol(status, sessions);
    (void)ui::HeaderView::subtitleFor(status);

    const DaemonTime now(std::chrono::seconds(1'750'000'000));
    for (const ClaudeSession& session : sessions) {
        (void)relativeTimePhrase(session.lastActive, now);
        const ui::SessionRow row(session);
        (void)row.titleText();
        (void)row.detailText(now);
    }
    sessionsView->setSessions(sessions);
    for (int i = 0; i < sessionsView->count(); ++i) {
        sessionsView->toggle(sessionsView->session(i).id);
        (void)sessionsView->shownLastText(i);
        (void)sessionsView->contentHeight(300);
    }
    for (const PairedDevice& device : devices) {
        phoneRow->setDevice(device);
        (void)phoneRow->nameText();
        (void)phoneRow->pairedText();
    }
    return 0;
}
