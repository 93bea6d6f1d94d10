#include "words.h"

namespace shell
{
namespace
{

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

struct Word {
    std::string text;
    bool quoted = false;
    size_t end = 0; // just past the word in the line
};

// `stop` is where the words end: the line's end or the comment's '#'.
std::string split_words(std::string_view line, std::vector<Word> &words, size_t &stop)
{
    size_t i = 0;
    stop = line.size();
    while (i < line.size()) {
        if (is_blank(line[i])) {
            ++i;
            continue;
        }
        if (line[i] == '#') {
            stop = i;
            break; // a comment runs to the end of the line
        }
        Word word;
        while (i < line.size() && !is_blank(line[i])) {
            if (line[i] != '"') {
                word.text += line[i++];
                continue;
            }
            word.quoted = true;
            ++i;
            bool closed = false;
            while (i < line.size()) {
                const char c = line[i++];
                if (c == '"') {
                    closed = true;
                    break;
                }
                if (c == '\\' && i < line.size() && (line[i] == '"' || line[i] == '\\'))
                    word.text += line[i++];
                else
                    word.text += c;
            }
            if (!closed)
                return "a quote is not closed";
        }
        word.end = i;
        words.push_back(std::move(word));
    }
    return {};
}

} // namespace

std::string split_line(std::string_view line, CommandLine &command)
{
    std::vector<Word> words;
    size_t stop = 0;
    if (std::string error = split_words(line, words, stop); !error.empty())
        return error;
    command = CommandLine{};
    for (size_t i = 0; i < words.size(); ++i) {
        const Word &word = words[i];
        if (word.quoted || !word.text.starts_with("=>")) {
            if (i == 0 && word.text.empty())
                return "an empty command name";
            if (i == 0)
                command.name = word.text;
            else
                command.words.push_back(word.text);
            continue;
        }
        // "=> N" or "=>N": the expected status, which ends the line.
        if (i == 0)
            return "\"=>\" needs a command before it";
        std::string expect = word.text.substr(2);
        size_t last = i;
        if (expect.empty()) {
            if (i + 1 >= words.size())
                return "\"=>\" needs the expected status after it";
            expect = words[++last].text;
        }
        // What follows the status (limits and step options) is read by the station.
        command.checks = std::string(line.substr(words[last].end, stop - words[last].end));
        if (expect.size() > 1 && expect.back() == ',') {
            expect.pop_back();
            command.checks = "," + command.checks;
        }
        while (!command.checks.empty() && is_blank(command.checks.back()))
            command.checks.pop_back();
        command.expect = expect;
        break;
    }
    if (!command.name.empty() && command.name.find_first_of(" \t") != std::string::npos)
        return "'" + command.name + "' is not a command name";
    return {};
}

std::string CommandLine::display() const
{
    std::string text = name;
    for (const std::string &word : words) {
        const bool plain =
            !word.empty() && word.find_first_of(" \t\"\\#") == std::string::npos && !word.starts_with("=>");
        if (plain) {
            text += " " + word;
            continue;
        }
        text += " \"";
        for (char c : word) {
            if (c == '"' || c == '\\')
                text += '\\';
            text += c;
        }
        text += "\"";
    }
    return text;
}

} // namespace shell
