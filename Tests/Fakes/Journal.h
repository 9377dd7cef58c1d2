#pragma once

#include "Tests/Fakes/Printing.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// What happened in a test, one line each, in order: all stand-ins of one test write into the same journal,
/// so that the order of their calls can be asserted.
class Journal {
public:
    void add(const QString &line) {
        lines_.push_back(line.toStdString());
        for (const auto &[beginning, action] : actions_) {
            if (line.startsWith(beginning))
                action();
        }
    }

    /// Has `action` called whenever a line with that beginning is added: to look at the state at that moment.
    void whenever(const QString &beginning, std::function<void()> action) {
        actions_.emplace_back(beginning, std::move(action));
    }

    const std::vector<std::string> &lines() const { return lines_; }

    std::vector<std::string> linesBeginningWith(const std::string &beginning) const {
        std::vector<std::string> found;
        for (const auto &line : lines_) {
            if (line.starts_with(beginning))
                found.push_back(line);
        }
        return found;
    }

    void clear() { lines_.clear(); }

private:
    std::vector<std::string> lines_;
    std::vector<std::pair<QString, std::function<void()>>> actions_;
};
