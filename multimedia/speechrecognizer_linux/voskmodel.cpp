#include "multimedia/speechrecognizer_linux/voskmodel.h"

#include "multimedia/speechrecognizer_linux/speechlanguage.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QString>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <system_error>

namespace speechRecognize {

namespace {

namespace fs = std::filesystem;

/// What the engine opens without asking whether it is there.
constexpr const char* kNeeded[] = {"am/final.mdl", "conf/mfcc.conf", "conf/model.conf",
                                   "graph/phones/word_boundary.int"};
constexpr const char* kVoicePrint[] = {"ivector/final.ie",         "ivector/final.dubm",
                                       "ivector/final.mat",        "ivector/global_cmvn.stats",
                                       "ivector/online_cmvn.conf", "ivector/splice.conf"};

// The network stands behind the transitions, which take some hundred kilobytes.
constexpr std::size_t kHead = std::size_t(8) << 20;
const std::string kMark = std::string("\0B", 2) + "<TransitionModel> <Topology> ";
constexpr char kIntegers = sizeof(std::int32_t); // stands before a list of them
constexpr int kUsualCepstra = 13;
constexpr std::size_t kMostPhones = 100'000;

/// A model by its folder's name.
struct Named
{
    VoskModel model;
    bool is_small = false;
    std::string name;
};

std::optional<Named> named(const fs::path& folder)
{
    const QRegularExpression pattern(
        QStringLiteral("^vosk-model(?<small>-small)?-(?<language>[a-z]{2,3}(-[a-z]{2})?)-.+$"),
        QRegularExpression::CaseInsensitiveOption);
    const std::string name = folder.filename().string();
    const QRegularExpressionMatch match = pattern.match(QString::fromStdString(name));
    const SpeechLanguage language = speechLanguage(match.captured(QStringLiteral("language")).toStdString());
    // A model named "spk" tells who speaks, instead of what.
    if (!match.hasMatch() || language.language == "spk")
        return {};
    const bool is_small = !match.captured(QStringLiteral("small")).isEmpty();
    return Named{{folder.string(), language.name()}, is_small, name};
}

bool hasContent(const fs::path& file)
{
    std::error_code error;
    return fs::is_regular_file(file, error) && fs::file_size(file, error) > 0 && !error;
}

std::string contentOf(const fs::path& file, std::size_t at_most)
{
    std::ifstream stream(file, std::ios::binary);
    std::string content(at_most, '\0');
    stream.read(content.data(), std::streamsize(at_most));
    content.resize(std::size_t(std::max<std::streamsize>(stream.gcount(), 0)));
    return content;
}

/// The number behind `key`, which stands once or not at all.
std::optional<int> numberBehind(const std::string& text, const std::string& key)
{
    const std::size_t found = text.find(key);
    if (found == std::string::npos)
        return {};
    return std::atoi(text.c_str() + found + key.size());
}

/// The phones that the head of the acoustic model tells.
std::vector<std::int32_t> phonesOf(const std::string& head)
{
    std::size_t position = kMark.size();
    std::int32_t count = 0;
    if (head.size() < position + 1 + sizeof(count) || head[position++] != kIntegers)
        return {};
    std::memcpy(&count, &head[position], sizeof(count));
    position += sizeof(count);
    if (count <= 0 || std::size_t(count) > kMostPhones ||
        head.size() - position < std::size_t(count) * sizeof(std::int32_t))
        return {};
    std::vector<std::int32_t> phones{};
    phones.resize(std::size_t(count));
    std::memcpy(phones.data(), &head[position], phones.size() * sizeof(std::int32_t));
    return phones;
}

/// Lines of a phone's number and where in words it stands.
bool coversPhones(const fs::path& word_boundaries, const std::vector<std::int32_t>& phones)
{
    static const std::set<std::string> places = {"nonword", "begin", "end", "internal", "singleton"};
    std::set<std::int32_t> known;
    std::ifstream stream(word_boundaries);
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        std::int32_t phone = 0;
        std::string place;
        std::string rest;
        if (!(words >> phone >> place) || words >> rest || phone <= 0 || places.count(place) == 0)
            return false;
        known.insert(phone);
    }
    return std::all_of(phones.begin(), phones.end(), [&](auto phone) { return known.count(phone) > 0; });
}

} // namespace

std::vector<VoskModel> findVoskModels(const std::vector<std::string>& folders)
{
    std::vector<VoskModel> models;
    for (const std::string& folder : folders) {
        std::vector<Named> here;
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code status;
            const std::optional<Named> found = named(entry->path());
            if (found && entry->is_directory(status))
                here.push_back(*found);
        }
        std::sort(here.begin(), here.end(), [](const Named& a, const Named& b) {
            const int order = strverscmp(a.name.c_str(), b.name.c_str());
            return a.is_small == b.is_small ? order > 0 : a.is_small;
        });
        for (const Named& found : here)
            models.push_back(found.model);
    }
    return models;
}

std::string faultOfVoskModel(const std::string& path)
{
    const fs::path folder = path;
    for (const char* file : kNeeded) {
        if (!hasContent(folder / file))
            return std::string(file) + " is missing or empty";
    }
    if (!hasContent(folder / "graph/HCLG.fst") &&
        !(hasContent(folder / "graph/HCLr.fst") && hasContent(folder / "graph/Gr.fst")))
        return "neither graph/HCLG.fst nor graph/HCLr.fst and graph/Gr.fst are there";

    const std::string head = contentOf(folder / "am/final.mdl", kHead);
    const std::vector<std::int32_t> phones = phonesOf(head);
    if (head.compare(0, kMark.size(), kMark) != 0 || phones.empty())
        return "am/final.mdl is no acoustic model";
    if (!coversPhones(folder / "graph/phones/word_boundary.int", phones))
        return "graph/phones/word_boundary.int does not tell every phone of am/final.mdl";
    const std::optional<int> wanted = numberBehind(head, "input-node name=input dim=");
    const std::string cepstra = contentOf(folder / "conf/mfcc.conf", kHead);
    if (wanted && numberBehind(cepstra, "--num-ceps=").value_or(kUsualCepstra) != *wanted)
        return "conf/mfcc.conf has another dimension than am/final.mdl";
    if (numberBehind(head, "input-node name=ivector dim=")) {
        for (const char* file : kVoicePrint) {
            if (!hasContent(folder / file))
                return std::string(file) + " is missing or empty";
        }
    }
    return {};
}

} // namespace speechRecognize
