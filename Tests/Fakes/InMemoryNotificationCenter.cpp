#include "Tests/Fakes/InMemoryNotificationCenter.h"

#include "Platform/RunLoop.h"

#include <QStringList>

#include <utility>

void InMemoryNotificationCenter::addObserver(const void *observer, Handler handler, const QString &name) {
    observations_.push_back(
        std::make_shared<const Observation>(Observation { observer, std::move(handler), name }));
    journal_.add(QStringLiteral("observe ") + name);
}

void InMemoryNotificationCenter::removeObserver(const void *observer, const QString &name) {
    std::erase_if(
        observations_, [&](const auto &each) { return each->observer == observer && each->name == name; });
    journal_.add(QStringLiteral("unobserve ") + name);
}

void InMemoryNotificationCenter::postNotificationName(const QString &name) {
    post({ name, {}, std::nullopt });
    journal_.add(QStringLiteral("post ") + name);
}

void InMemoryNotificationCenter::post(const Notification &notification) {
    posted_.push_back(notification);
    for (const auto &observation : observations_) {
        if (observation->name != notification.name)
            continue;
        // Weak: it is in force as long as the centre holds it.
        runLoop_.async([weak = std::weak_ptr(observation), notification] {
            if (const auto observed = weak.lock())
                observed->handler(notification);
        });
    }
}

QStringList InMemoryNotificationCenter::observedNames() const {
    QStringList names;
    for (const auto &observation : observations_)
        names << observation->name;
    return names;
}
