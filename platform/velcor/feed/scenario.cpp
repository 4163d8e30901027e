#include "scenario.h"

#include <algorithm>
#include <utility>

#include "files.h"

static const unsigned           NESTING_MAX = 8;
static const unsigned long long STEPS_MAX = 1000000;
static const unsigned long long ANY64 = ~0ull;

/* ---- The settings of a disk ---- */

struct SettingRow {
    const char*        word;
    unsigned long long least;
    unsigned long long most;
    unsigned long long initial;
    const char*        help;
};

static const SettingRow g_settings[] = {
    { "state", 0, 0xFFFFFFFF, 0, "1 or the word on: initialised; 0 or the word off, or anything else: not" },
    { "mode", 0, 0xFFFFFFFF, 0, "0 or the word async, 1 or the word sync; anything else is an invalid mode" },
    { "writes", 0, 10000000, 100, "writes in a step" },
    { "bytes", 0, 1ull << 30, 8192, "bytes of each write" },
    { "latency", 0, 1000000000, 400, "response time of a write, us, mean of the step" },
    { "longest", 0, 1000000000, 0, "longest response time of the step, us, if over the mean" },
    { "request", 0, 1ull << 50, 0, "request queue, bytes" },
    { "link", 0, 1ull << 50, 32ull << 20, "bytes the link hands over in a step at most; the rest queues" },
    { "ratio", 1, 1000, 62, "percent of the bytes that remain after reduction" },
    { "transfer", 0, 1000000000, 300, "base time of one transfer, us" },
    { "queue", 0, 1ull << 50, 0, "puts the send queue at so many bytes, once, before the next step" },
    { "sum", 0, ANY64, 0, "puts the sum of bytes written there, once, before the next step" },
};
static_assert(sizeof(g_settings) / sizeof(g_settings[0]) == SETTING_NUM, "one line per setting");

/* Words that stand for a setting and its value. */
struct ShortWord {
    const char*        word;
    Setting            setting;
    unsigned long long value;
};

static const ShortWord g_shortWords[] = {
    { "on", SETTING_STATE, 1 },
    { "off", SETTING_STATE, 0 },
    { "async", SETTING_MODE, VELCOR_MODE_ASYNC },
    { "sync", SETTING_MODE, VELCOR_MODE_SYNC },
};

std::string ScenarioHelp()
{
    std::string help =
        "The script language of --scenario: one statement a line, words apart by blanks, # starts a comment.\n"
        "  disk LIST SETTING...      sets what the disks of LIST do from the next step on. LIST: 3, 1-8, 1,4,9-12 or "
        "all\n"
        "  driver status NUMBER      status word of the driver's replies; 0 as usual\n"
        "  driver refuse on|off      the driver refuses the request itself (device not ready)\n"
        "  filter error NUMBER       the filter library answers this Win32 error number; 0 as usual\n"
        "  step [NUMBER]             feeds one step (or so many, up to 1000000), a second each\n"
        "  repeat NUMBER or forever  does what follows up to its 'end' so often; needs a step inside; up to 8 deep\n"
        "  end                       closes a repeat\n"
        "  seed NUMBER               starts the random numbers anew; before the first one --seed holds\n"
        "  say TEXT                  prints the text when it is reached\n"
        "SETTING, any number of them in a line (in brackets what holds before the first):\n";

    for (const SettingRow& row : g_settings) {
        std::string start = std::string("  ") + row.word + " NUMBER";
        start.resize(28, ' ');
        help += start + row.help + " [" + std::to_string(row.initial) + "]\n";
    }
    help += "NUMBER: decimal or 0x; K, M, G behind it multiply by 1024 once, twice, three times; LOW~HIGH is drawn "
            "anew at\n"
            "each step, the same for the same seed (for disk settings only).\n"
            "What is set stays set. At the end of the script the last step stands until somebody feeds again.\n"
            "Example:\n"
            "  disk 1-3 on async writes 50~150 bytes 8K latency 300~900\n"
            "  disk 3 sync\n"
            "  repeat 10\n"
            "    step 5\n"
            "    disk 2 link 1M          # the link of disk 2 slows down: its send queue grows\n"
            "    step 3\n"
            "    disk 2 link 32M\n"
            "  end\n"
            "  driver status 0xE9F80010\n"
            "  step 2\n";
    return help;
}

/* ---- The parser ---- */

/* Decimal or 0x, with K, M or G behind it. */
static bool ParseScaled(const std::string& word, unsigned long long& number)
{
    static const char  SCALES[] = "KMG";
    std::string        digits = word;
    unsigned           shift = 0;
    unsigned long long value = 0;

    if (!digits.empty()) {
        const char* scale = std::find(SCALES, SCALES + 3, digits.back());
        if (scale != SCALES + 3) {
            shift = static_cast<unsigned>(scale - SCALES + 1) * 10;
            digits.pop_back();
        }
    }
    if (digits.compare(0, 2, "0x") == 0 || digits.compare(0, 2, "0X") == 0) {
        if (digits.size() < 3 || digits.size() > 18 ||
            digits.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos) {
            return false;
        }
        value = std::stoull(digits.substr(2), nullptr, 16);
    } else if (!ParseNumber(digits, value)) {
        return false;
    }
    if (value > ANY64 >> shift) {
        return false;
    }
    number = value << shift;
    return true;
}

class Parser {
public:
    bool Parse(const std::string& text);

    Scenario    scenario;
    unsigned    line = 0;
    std::string reason;

private:
    bool Refuse(const std::string& why);
    bool ParseLine(const std::string& text);
    bool ParseDisk();
    bool ParseList(const std::string& list, std::bitset<VELCOR_DISK_MAX>& disks);
    bool ParseDriver();
    bool ParseCount(Verb verb, unsigned long long least, unsigned long long most);
    bool ParseRepeat();
    bool ParseEnd();
    bool TakeNumber(const char* what, unsigned long long least, unsigned long long most, unsigned long long& number);
    bool TakeRange(const SettingRow& row, Range& range);
    bool Finished();
    void Add(Verb verb, unsigned long long value);

    std::vector<std::string> m_words;
    size_t                   m_word = 0;  // the next word of the line
    std::vector<size_t>      m_open;      // repeats without their end
};

bool Parser::Refuse(const std::string& why)
{
    reason = why;
    return false;
}

void Parser::Add(Verb verb, unsigned long long value)
{
    Statement statement = {};

    statement.verb = verb;
    statement.line = line;
    statement.value = { value, value };
    scenario.push_back(statement);
}

bool Parser::TakeNumber(const char* what, unsigned long long least, unsigned long long most, unsigned long long& number)
{
    if (m_word == m_words.size()) {
        return Refuse(std::string("a number is missing behind '") + what + "'");
    }
    const std::string& word = m_words[m_word++];
    if (!ParseScaled(word, number)) {
        return Refuse("'" + word + "' is no number");
    }
    if (number < least || number > most) {
        return Refuse(std::string(what) + " " + word + " is not in " + std::to_string(least) + " to " +
                      std::to_string(most));
    }
    return true;
}

bool Parser::TakeRange(const SettingRow& row, Range& range)
{
    const size_t tilde = m_word < m_words.size() ? m_words[m_word].find('~') : std::string::npos;

    if (tilde == std::string::npos) {
        const bool taken = TakeNumber(row.word, row.least, row.most, range.low);
        range.high = range.low;
        return taken;
    }
    // The two ends take the place of the one word, so that each is read and refused like a single number.
    const std::string word = m_words[m_word];
    m_words[m_word] = word.substr(0, tilde);
    m_words.insert(m_words.begin() + static_cast<std::ptrdiff_t>(m_word) + 1, word.substr(tilde + 1));
    if (!TakeNumber(row.word, row.least, row.most, range.low) ||
        !TakeNumber(row.word, row.least, row.most, range.high)) {
        return false;
    }
    return range.low <= range.high || Refuse("'" + word + "' runs backwards");
}

bool Parser::Finished()
{
    return m_word == m_words.size() || Refuse("'" + m_words[m_word] + "' is one word too many");
}

bool Parser::ParseList(const std::string& list, std::bitset<VELCOR_DISK_MAX>& disks)
{
    size_t start = 0;

    if (list == "all") {
        disks.set();
        return true;
    }
    while (start <= list.size()) {
        const size_t       comma = std::min(list.find(',', start), list.size());
        const std::string  part = list.substr(start, comma - start);
        const size_t       dash = part.find('-');
        unsigned long long first = 0;
        unsigned long long last = 0;
        if (!ParseNumber(part.substr(0, dash), first) ||
            !ParseNumber(dash == std::string::npos ? part : part.substr(dash + 1), last)) {
            return Refuse("'" + list + "' is no list of disks");
        }
        if (first < 1 || last > VELCOR_DISK_MAX || first > last) {
            return Refuse("'" + part + "' is not within the disks 1 to 64");
        }
        for (; first <= last; first++) {
            disks.set(first - 1);
        }
        start = comma + 1;
    }
    return true;
}

bool Parser::ParseDisk()
{
    std::bitset<VELCOR_DISK_MAX> disks;

    if (m_words.size() < 2) {
        return Refuse("which disks? A list is missing behind 'disk'");
    }
    if (!ParseList(m_words[1], disks)) {
        return false;
    }
    if (m_words.size() < 3) {
        return Refuse("no setting for the disks");
    }
    m_word = 2;
    while (m_word < m_words.size()) {
        const std::string word = m_words[m_word++];
        Range             value = {};
        Setting           setting = SETTING_NUM;
        const auto        shortWord = std::find_if(std::begin(g_shortWords), std::end(g_shortWords),
                                                   [&](const ShortWord& each) { return word == each.word; });
        const auto        row = std::find_if(std::begin(g_settings), std::end(g_settings),
                                             [&](const SettingRow& each) { return word == each.word; });
        if (shortWord != std::end(g_shortWords)) {
            setting = shortWord->setting;
            value = { shortWord->value, shortWord->value };
        } else if (row == std::end(g_settings)) {
            return Refuse("'" + word + "' is no setting of a disk");
        } else if (!TakeRange(*row, value)) {
            return false;
        } else {
            setting = static_cast<Setting>(row - std::begin(g_settings));
        }
        Add(Verb::Disk, 0);
        scenario.back().disks = disks;
        scenario.back().setting = setting;
        scenario.back().value = value;
    }
    return true;
}

bool Parser::ParseDriver()
{
    const std::string what = m_words.size() > 1 ? m_words[1] : std::string();

    m_word = 2;
    if (what == "status") {
        return ParseCount(Verb::DriverStatus, 0, 0xFFFFFFFF);
    }
    if (what == "refuse") {
        const std::string word = m_words.size() > 2 ? m_words[2] : std::string();
        if (word != "on" && word != "off") {
            return Refuse("'driver refuse' takes on or off");
        }
        m_word = 3;
        Add(Verb::Refuse, word == "on");
        return Finished();
    }
    return Refuse("'driver' takes status or refuse");
}

bool Parser::ParseCount(Verb verb, unsigned long long least, unsigned long long most)
{
    const std::string  what = m_words[m_word - 1];
    unsigned long long number = 0;

    if (!TakeNumber(what.c_str(), least, most, number)) {
        return false;
    }
    Add(verb, number);
    return Finished();
}

bool Parser::ParseRepeat()
{
    if (m_open.size() == NESTING_MAX) {
        return Refuse("repeats are nested more than 8 deep");
    }
    m_open.push_back(scenario.size());
    if (m_words.size() > 1 && m_words[1] == "forever") {
        m_word = 2;
        Add(Verb::Repeat, 0);
        return Finished();
    }
    return ParseCount(Verb::Repeat, 1, STEPS_MAX);
}

/* A repeat without a step would turn without time going by. */
bool Parser::ParseEnd()
{
    if (m_open.empty()) {
        return Refuse("'end' without a repeat");
    }
    const size_t repeat = m_open.back();
    m_open.pop_back();
    if (std::none_of(scenario.begin() + static_cast<std::ptrdiff_t>(repeat), scenario.end(),
                     [](const Statement& each) { return each.verb == Verb::Step; })) {
        return Refuse("no step in the repeat of line " + std::to_string(scenario[repeat].line));
    }
    scenario[repeat].partner = scenario.size();
    Add(Verb::End, 0);
    scenario.back().partner = repeat;
    return Finished();
}

bool Parser::ParseLine(const std::string& text)
{
    m_words = Words(text.substr(0, text.find('#')));
    m_word = 1;
    if (m_words.empty()) {
        return true;
    }
    const std::string verb = m_words[0];
    if (verb == "disk") {
        return ParseDisk();
    }
    if (verb == "driver") {
        return ParseDriver();
    }
    if (verb == "filter") {
        m_word = 2;
        return (m_words.size() > 1 && m_words[1] == "error") ? ParseCount(Verb::FilterError, 0, 0xFFFFFFFF)
                                                             : Refuse("'filter' takes error");
    }
    if (verb == "seed") {
        return ParseCount(Verb::Seed, 0, ANY64);
    }
    if (verb == "step") {
        if (m_words.size() == 1) {
            Add(Verb::Step, 1);
            return true;
        }
        return ParseCount(Verb::Step, 1, STEPS_MAX);
    }
    if (verb == "repeat") {
        return ParseRepeat();
    }
    if (verb == "end") {
        return ParseEnd();
    }
    if (verb == "say") {
        Add(Verb::Say, 0);
        for (size_t i = 1; i < m_words.size(); i++) {
            scenario.back().text += (i == 1 ? "" : " ") + m_words[i];
        }
        return true;
    }
    return Refuse("'" + verb + "' is no statement");
}

bool Parser::Parse(const std::string& text)
{
    for (const std::string& each : Lines(text)) {
        line++;
        if (!ParseLine(each)) {
            return false;
        }
    }
    if (!m_open.empty()) {
        line = scenario[m_open.back()].line;
        return Refuse("this repeat has no end");
    }
    if (std::none_of(scenario.begin(), scenario.end(), [](const Statement& each) { return each.verb == Verb::Step; })) {
        return Refuse("no step in the whole script");
    }
    return true;
}

bool ParseScenario(const std::string& text, Scenario& scenario, unsigned& line, std::string& reason)
{
    Parser     parser;
    const bool good = parser.Parse(text);

    line = parser.line;
    reason = parser.reason;
    if (good) {
        scenario.swap(parser.scenario);
    }
    return good;
}

/* ---- The player ---- */

ScenarioSource::ScenarioSource(Scenario scenario, unsigned long long seed)
    : m_scenario(std::move(scenario)), m_random(seed)
{
    m_feed.driver.header = VELCOR_REQUEST_HEADER;
    m_feed.filter.header = VELCOR_REQUEST_HEADER;
    for (Disk& disk : m_disks) {
        for (size_t i = 0; i < SETTING_NUM; i++) {
            disk.setting[i] = { g_settings[i].initial, g_settings[i].initial };
        }
    }
}

/* Not std::uniform_int_distribution: its numbers differ from one standard library to the next. */
unsigned long long ScenarioSource::Draw(const Range& range)
{
    const unsigned long long width = range.high - range.low;

    if (width == 0) {
        return range.low;
    }
    return width == ANY64 ? m_random() : range.low + m_random() % (width + 1);
}

void ScenarioSource::SetDisks(const Statement& statement)
{
    for (size_t i = 0; i < m_disks.size(); i++) {
        if (statement.disks[i]) {
            m_disks[i].setting[statement.setting] = statement.value;
            m_disks[i].fresh.set(statement.setting);
        }
    }
}

/* One step of one disk. A disk that is off stands still, but draws its numbers, so that the others' stay the same. */
void ScenarioSource::Play(Disk& disk)
{
    std::array<unsigned long long, SETTING_NUM> value;
    VELCOR_ENTRY&                               n = disk.mirror.numbers;

    for (size_t i = 0; i < SETTING_NUM; i++) {
        value[i] = Draw(disk.setting[i]);
    }
    n.state = static_cast<unsigned>(value[SETTING_STATE]);
    n.mode = static_cast<unsigned>(value[SETTING_MODE]);
    if (disk.fresh[SETTING_QUEUE]) {
        n.send_queue = value[SETTING_QUEUE];
    }
    if (disk.fresh[SETTING_SUM]) {
        n.write_bytes = value[SETTING_SUM];
    }
    disk.fresh.reset();
    if (n.state == VELCOR_STATE_INITIALIZED) {
        const unsigned long long writes = value[SETTING_WRITES];
        const unsigned long long longest = std::max(value[SETTING_LATENCY], value[SETTING_LONGEST]);
        Advance(disk.mirror,
                { writes * value[SETTING_BYTES], writes, writes * value[SETTING_LATENCY], writes == 0 ? 0 : longest,
                  value[SETTING_REQUEST] },
                { value[SETTING_LINK], value[SETTING_RATIO], value[SETTING_TRANSFER] });
    }
}

void ScenarioSource::Fill(Step& step)
{
    for (unsigned slot = 0; slot < VELCOR_DISK_MAX; slot++) {
        const VELCOR_ENTRY& n = m_disks[slot].mirror.numbers;
        Play(m_disks[slot]);
        PutNumbers(n, slot, m_feed);
        if (n.state == VELCOR_STATE_INITIALIZED) {
            step.disks.push_back({ slot + 1, "-", n.write_bytes, n.writes, n.write_us });
        }
    }
    step.feed = m_feed;
}

bool ScenarioSource::Next(Step& step)
{
    step.disks.clear();
    step.words.clear();
    for (; m_stepsLeft == 0; m_next++) {
        if (m_next == m_scenario.size()) {
            return false;
        }
        const Statement& statement = m_scenario[m_next];
        switch (statement.verb) {
        case Verb::Disk:
            SetDisks(statement);
            break;
        case Verb::DriverStatus:
            m_feed.driver_status = static_cast<unsigned>(statement.value.low);
            break;
        case Verb::Refuse:
            m_feed.refuse = static_cast<unsigned>(statement.value.low);
            break;
        case Verb::FilterError:
            m_feed.filter_error = static_cast<unsigned>(statement.value.low);
            break;
        case Verb::Seed:
            m_random.seed(statement.value.low);
            break;
        case Verb::Say:
            step.words.push_back(statement.text);
            break;
        case Verb::Step:
            m_stepsLeft = statement.value.low;
            break;
        case Verb::Repeat:
            m_rounds.push_back(statement.value.low);
            break;
        case Verb::End:
            if (m_rounds.back() == 1) {
                m_rounds.pop_back();
            } else {
                m_rounds.back() -= m_rounds.back() != 0;
                m_next = statement.partner;  // the loop goes on behind the repeat
            }
            break;
        }
    }
    m_stepsLeft--;
    Fill(step);
    return true;
}
