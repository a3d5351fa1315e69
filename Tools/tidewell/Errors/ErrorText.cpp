#include "Errors/ErrorText.h"

#include "Errors/Advice.h"
#include "Errors/CommandLineError.h"
#include "Platform/Text.h"
#include "Platform/Value.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <vector>

namespace tdw::cli {

namespace {

/// A server that died may have left pages on its standard error; a few lines say it.
constexpr std::size_t kMostLines = 12;

std::string textUnder(const Error& error, std::string_view key)
{
    const Value* value = error.userInfo().find(key);
    const std::string* text = value ? value->asString() : nullptr;
    return text ? *text : std::string();
}

std::string reasonOf(const Error& error)
{
    auto reason = error.failureReason();
    if (reason.find_first_not_of(" \t\r\n") == std::string::npos)
        return "Error " + std::to_string(error.code()) + " in \"" + error.domain() + "\".";
    return reason;
}

/// The lines that hold something, each safe to show.
std::vector<std::string> linesOf(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty() && lines.size() < kMostLines) {
        auto line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.find_first_not_of(" \t") != std::string_view::npos)
            lines.push_back(withControlCharactersEscaped(line));
    }
    return lines;
}

/// Collects the lines of one message.
class Message {
public:
    Message(std::string beginning, std::string_view reason)
    {
        m_lines.push_back(std::move(beginning));
        addLines(reason, "", false);
    }

    /// Goes on in the last line after an unfinished sentence, in a new one after a full stop.
    void addCause(std::string_view reason)
    {
        const bool isFinished = m_lines.back().ends_with('.');
        addLines(reason, isFinished ? "  Cause: " : ": ", isFinished);
    }

    void addNote(std::string_view label, std::string_view text)
    {
        if (!text.empty())
            addLines(text, "  " + std::string(label), true);
    }

    std::string text() const
    {
        std::string result;
        for (const std::string& line : m_lines)
            result += line + "\n";
        return result;
    }

private:
    void addLines(std::string_view text, std::string_view prefix, bool onNewLine)
    {
        if (onNewLine)
            m_lines.emplace_back();
        m_lines.back() += prefix;
        bool isFirst = true;
        for (const std::string& line : linesOf(text)) {
            if (isFirst)
                m_lines.back() += line;
            else
                m_lines.push_back("    " + line);
            isFirst = false;
        }
    }

    std::vector<std::string> m_lines;
};

void addParallelCauses(Message& message, const Error& error)
{
    const Value* causes = error.userInfo().find(kMultipleUnderlyingErrorsKey);
    const Array* array = causes ? causes->asArray() : nullptr;
    if (!array)
        return;
    for (const Value& entry : *array) {
        if (const Error* cause = entry.asError())
            message.addNote("Cause: ", reasonOf(*cause));
    }
}

std::string textBeginningWith(std::string beginning, const Error& error)
{
    const auto chain = causeChain(error);
    auto previous = reasonOf(error);
    Message message(std::move(beginning), previous);
    for (const Error& link : std::span(chain).subspan(1)) {
        auto reason = reasonOf(link);
        if (reason != previous)
            message.addCause(reason);
        previous = std::move(reason);
    }
    for (const Error& link : chain) {
        addParallelCauses(message, link);
        message.addNote("Detail: ", textUnder(link, kTDWErrorDetailKey));
    }
    message.addNote("", textUnder(chain.back(), kDebugDescriptionErrorKey));
    message.addNote("", adviceFor(error));
    return message.text();
}

} // namespace

std::string errorText(const Error& error, ColourMode colours)
{
    return textBeginningWith(coloured("tidewell:", Colour::Red, colours) + " ", error);
}

std::string warningText(const Error& warning, ColourMode colours)
{
    return textBeginningWith(
        coloured("tidewell: warning:", Colour::Yellow, colours) + " ", warning);
}

} // namespace tdw::cli
