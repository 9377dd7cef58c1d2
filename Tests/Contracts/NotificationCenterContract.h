#pragma once

#include "Platform/DistributedNotificationCenter.h"

#include <QVariant>

#include <functional>
#include <memory>
#include <vector>

/// A centre, and somebody else who posts to it.
class Centers {
public:
    virtual ~Centers() = default;
    virtual DistributedNotificationCenter &observing() = 0;
    virtual void post(const Notification &notification) = 0;
    virtual bool waitUntil(const std::function<bool()> &condition) = 0;
    /// Waits until what was observed so far is heard, whoever posts.
    virtual void waitUntilObserving() = 0;
};

/// A kind of centre that the suite is run over.
struct Kind {
    const char *name;
    std::unique_ptr<Centers> (*make)();
    /// What a value arrives as, where a kind has its own way with some; a null pointer when as it was posted.
    QVariant (*arriving)(const QVariant &posted) = nullptr;
};

/// Those of this program.
const std::vector<Kind> &kinds();
