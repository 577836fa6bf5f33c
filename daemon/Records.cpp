#include "Records.h"

namespace harkline {
namespace {

void readText(const Json& object, const char* key, std::string& field)
{
    if (const Json* v = member(object, key); v && v->is_string())
        field = v->get_ref<const std::string&>();
}

void readWhole(const Json& object, const char* key, std::int64_t& field)
{
    if (const Json* v = member(object, key))
        if (const auto n = wholeNumber(*v))
            field = *n;
}

// Only the literals true and false: 0 and 1 are numbers, and taking them as flags would let a
// daemon bug pass for a state (the same rule as booleans not counting as numbers).
void readFlag(const Json& object, const char* key, bool& field)
{
    if (const Json* v = member(object, key); v && v->is_boolean())
        field = v->get<bool>();
}

void readTime(const Json& object, const char* key, DaemonTime& field)
{
    if (const Json* v = member(object, key); v && v->is_number())
        field = DaemonTime(std::chrono::duration<double>(v->get<double>() / 1000.0));
}

void readTexts(const Json& object, const char* key, std::vector<std::string>& field)
{
    const Json* v = member(object, key);
    if (!v || !v->is_array())
        return;
    std::vector<std::string> texts;
    texts.reserve(v->size());
    for (const Json& element : *v) {
        if (!element.is_string())
            return; // one stranger spoils the list: keep the default
        texts.push_back(element.get<std::string>());
    }
    field = std::move(texts);
}

} // namespace

DaemonStatus::DaemonStatus(const Json& object)
{
    readText(object, "name", name);
    readWhole(object, "port", port);
    readTexts(object, "hosts", hosts);
    readWhole(object, "devices", devices);
    readWhole(object, "connected", connected);
    readWhole(object, "pending", pending);
}

ClaudeSession::ClaudeSession(const Json& object)
{
    readText(object, "id", id);
    readText(object, "project", project);
    readText(object, "title", title);
    readText(object, "state", state);
    readFlag(object, "listening", listening);
    readTime(object, "last_ts", lastActive);
    readText(object, "last_text", lastText);
    readWhole(object, "queued", queued);
}

PairedDevice::PairedDevice(const Json& object)
{
    readText(object, "id", id);
    readText(object, "name", name);
    readTime(object, "created", paired);
}

} // namespace harkline
