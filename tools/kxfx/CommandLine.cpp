#include "CommandLine.h"

#include "Settings.h"

namespace {

// Splits "--name=value"; otherwise the value is the next word.
std::pair<std::string, std::string> TakeOption(std::span<const std::string> words, size_t& index)
{
    const std::string option = words[index].substr(2);
    const size_t equals = option.find('=');
    if (equals != std::string::npos)
        return {option.substr(0, equals), option.substr(equals + 1)};
    if (index + 1 >= words.size())
        throw ToolError("missing value for --" + option);
    return {option, words[++index]};
}

KXRect ParseRectOption(const std::string& text)
{
    try {
        return ParseRect(text);
    } catch (const ToolError& error) {
        throw ToolError(std::string("--rect: ") + error.what());
    }
}

} // namespace

CommandLine ParseCommandLine(std::span<const std::string> words)
{
    CommandLine line;
    line.effect = words.front();
    for (size_t index = 1; index < words.size(); ++index) {
        const std::string& word = words[index];
        if (word == "--verbose") {
            line.verbose = true;
        } else if (word == "--progress") {
            line.progress = true;
        } else if (word.starts_with("--")) {
            auto [name, value] = TakeOption(words, index);
            if (name == "rect")
                line.rect = ParseRectOption(value);
            else
                line.settings.emplace_back(std::move(name), std::move(value));
        } else {
            line.files.push_back(word);
        }
    }
    return line;
}
