#include "config_keys.h"

#include <algorithm>

namespace dkpf {

std::vector<const XMLLIB_SETTING*> SettingsOf(const XMLLIB_REPORT& report)
{
    std::vector<const XMLLIB_SETTING*> settings;
    for (DWORD i = 0; i < report.dwSettings && i < XMLLIB_SETTING_MAX; i++)
        settings.push_back(&report.setting[i]);
    return settings;
}

std::string_view KeyName(std::string_view key)
{
    const std::string_view root = SETTING_ROOT;
    return key.substr(0, root.size()) == root ? key.substr(root.size()) : key;
}

static std::string_view ShortName(std::string_view key)
{
    return key.substr(key.rfind('/') + 1);
}

static std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

/* How many letters must be put in, left out or replaced to make one of the other, or, within, of any part of it. */
static size_t Distance(const std::string& one, const std::string& other, bool within = false)
{
    std::vector<size_t> row(other.size() + 1);
    for (size_t i = 0; i < row.size() && !within; i++)
        row[i] = i;
    for (size_t i = 1; i <= one.size(); i++) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= other.size(); j++) {
            const size_t replaced = diagonal + (one[i - 1] == other[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({ replaced, row[j] + 1, row[j - 1] + 1 });
        }
    }
    return within ? *std::min_element(row.begin(), row.end()) : row.back();
}

static constexpr size_t FAR_AWAY = 1000;

/* 0: the same but for the case; FAR_AWAY: nobody means this one. */
static size_t HowFar(std::string_view key, const std::string& word)
{
    const std::string name(KeyName(key));
    const std::string shortName(ShortName(key));
    const size_t      distance = std::min(Distance(shortName, word), Distance(name, word));
    if (distance <= 1 + word.size() / 4 && distance < word.size())
        return distance;
    return word.size() > 2 && Distance(word, name, true) <= word.size() / 4 ? word.size() : FAR_AWAY;
}

static std::string Or(const std::vector<std::string>& names)
{
    std::string text;
    for (size_t i = 0; i < names.size(); i++)
        text += (i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
    return text;
}

std::string NearestKeys(const XMLLIB_REPORT& report, std::string_view word)
{
    const std::string        lower = Lower(KeyName(word).substr(0, XMLLIB_KEY_SIZE));
    size_t                   nearest = FAR_AWAY;
    std::vector<std::string> names;
    for (const XMLLIB_SETTING* setting : SettingsOf(report)) {
        // Where the section is right or missing, the last name alone decides.
        const size_t distance =
            std::min(HowFar(setting->szKey, lower), HowFar(setting->szKey, std::string(ShortName(lower))));
        if (distance < nearest)
            names.clear();
        nearest = std::min(nearest, distance);
        if (distance == nearest && distance != FAR_AWAY)
            names.emplace_back(KeyName(setting->szKey));
    }
    return Or(names);
}

KeyChoice ChooseKey(const XMLLIB_REPORT& report, std::string_view word)
{
    KeyChoice                choice;
    std::vector<std::string> names;
    for (const XMLLIB_SETTING* setting : SettingsOf(report)) {
        const std::string_view key = setting->szKey;
        if (word == key || word == KeyName(key) || word == ShortName(key)) {
            choice.setting = setting;
            names.emplace_back(KeyName(key));
        }
    }
    if (names.size() == 1)
        return choice;
    choice.setting = nullptr;
    choice.words = "there is no key " + std::string(word);
    if (names.size() > 1) {
        choice.words = std::string(word) + " is not one key: " + Or(names);
    } else {
        const std::string nearest = NearestKeys(report, word);
        choice.words += nearest.empty() ? "; dkpfctl config schema lists them all" : "; did you mean " + nearest + "?";
    }
    return choice;
}

std::optional<DWORD> InForceOf(const XMLLIB_SETTING& setting, const AgentState* running)
{
    const size_t index = SettingByName(KeyName(setting.szKey));
    if (running == nullptr || !running->inForce || index == SETTING_NUM)
        return {};
    return (*running->inForce)[index];
}

}  // namespace dkpf
