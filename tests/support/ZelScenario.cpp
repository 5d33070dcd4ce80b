#include "ZelScenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

ZelScenarioCell makeCell(int line, const std::string& text) {
    ZelScenarioCell cell{line, trim(text), {}};
    std::istringstream words(cell.text);
    for (std::string word; words >> word;) cell.words.push_back(word);
    return cell;
}

}  // namespace

std::string ZelScenarioCell::after(size_t count) const {
    size_t at = 0;
    for (size_t i = 0; i < count; ++i) {
        at = text.find_first_not_of(' ', at);
        at = at == std::string::npos ? at : text.find(' ', at);
        if (at == std::string::npos) return "";
    }
    return trim(text.substr(at));
}

std::map<std::string, std::string> ZelScenarioCell::options(size_t from) const {
    std::map<std::string, std::string> found;
    for (size_t i = from; i < words.size(); ++i) {
        const auto eq = words[i].find('=');
        found[words[i].substr(0, eq)] = eq == std::string::npos ? "" : words[i].substr(eq + 1);
    }
    return found;
}

std::string ZelScenarioCell::listIs(const std::vector<std::string>& found, size_t from) const {
    if (found == std::vector<std::string>(words.begin() + std::min(from, words.size()), words.end())) return "";
    std::string text = found.empty() ? "(none)" : "";
    for (const std::string& item : found) text += item + " ";
    return text;
}

void zelScenarioRefuse(const std::string& what) {
    throw std::invalid_argument(what);
}

std::pair<std::string, std::string> zelScenarioPair(const std::string& word) {
    const auto slash = word.find('/');
    if (slash == std::string::npos) zelScenarioRefuse("'" + word + "' is no <a>/<b> pair");
    return {word.substr(0, slash), word.substr(slash + 1)};
}

int zelScenarioMemoryStatus(const std::string& word) {
    return word == "critical" ? 4 : word == "normal" ? 1 : std::stoi(word);
}

std::string zelHex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof(text), "%x", value);
    return text;
}

std::string zelSubstitute(std::string text, const std::map<std::string, std::string>& values) {
    for (const auto& [name, value] : values) {
        for (auto at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size())) {
            text.replace(at, name.size(), value);
        }
    }
    return text;
}

std::string zelFindLineInOrder(const std::vector<std::string>& lines, size_t& cursor, const std::string& wanted) {
    const bool prefix = !wanted.empty() && wanted.back() == '*';
    const std::string text = prefix ? wanted.substr(0, wanted.size() - 1) : wanted;
    for (size_t i = cursor; i < lines.size(); ++i) {
        if (prefix ? lines[i].rfind(text, 0) == 0 : lines[i] == text) {
            cursor = i + 1;
            return "";
        }
    }
    std::string found = "no such line after the one found before; the lines were:";
    for (const std::string& line : lines) found += "\n    " + line;
    return found;
}

ZelScenario ZelScenario::read(const std::string& path) {
    ZelScenario scenario{path, {}};
    std::ifstream in(path);
    if (!in) ADD_FAILURE() << "cannot read " << path;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (trim(line).empty() || trim(line)[0] == '#') continue;
        std::vector<std::string> cells;
        std::istringstream split(line);
        for (std::string cell; std::getline(split, cell, '|');) cells.push_back(cell);
        cells.resize(std::max<size_t>(cells.size(), 3));
        if (cells.size() > 3) {
            ADD_FAILURE_AT(path.c_str(), number) << "more than three cells";
            continue;
        }
        const ZelScenarioCell action = makeCell(number, cells[0]);
        const ZelScenarioCell expectation = makeCell(number, cells[2]);
        if (action.text.empty() && (scenario.steps.empty() || !trim(cells[1]).empty())) {
            ADD_FAILURE_AT(path.c_str(), number) << "a continuation row needs a step above and no result";
            continue;
        }
        if (!action.text.empty()) scenario.steps.push_back({action, trim(cells[1]), {}});
        if (!expectation.text.empty()) scenario.steps.back().expect.push_back(expectation);
    }
    return scenario;
}

void runZelScenario(const ZelScenario& scenario, ZelScenarioDriver& driver) {
    const char* file = scenario.path.c_str();
    for (const ZelScenarioStep& step : scenario.steps) {
        std::string result;
        try {
            result = driver.perform(step.action);
        } catch (const std::invalid_argument& error) {
            ADD_FAILURE_AT(file, step.action.line) << step.action.text << ": " << error.what();
            return;  // later steps would build on a step that did not happen
        }
        if (!step.result.empty() && result != step.result) {
            ADD_FAILURE_AT(file, step.action.line)
                    << step.action.text << ": result " << result << ", expected " << step.result;
        }
        for (const ZelScenarioCell& expectation : step.expect) {
            std::string found;
            try {
                found = driver.check(expectation);
            } catch (const std::invalid_argument& error) {
                found = error.what();
            }
            if (!found.empty()) {
                ADD_FAILURE_AT(file, expectation.line)
                        << step.action.text << ": expected " << expectation.text << "\n  found: " << found;
            }
        }
        const std::string left = driver.stepEnd();
        if (!left.empty()) ADD_FAILURE_AT(file, step.action.line) << step.action.text << ": " << left;
    }
}
