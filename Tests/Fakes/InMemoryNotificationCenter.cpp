#include "Tests/Fakes/InMemoryNotificationCenter.h"

#include "Platform/RunLoop.h"

#include <QStringList>

#include <utility>

InMemoryNotificationCenter::InMemoryNotificationCenter(RunLoop &runLoop)
    : runLoop_(runLoop) { }

void InMemoryNotificationCenter::addObserver(
    const void *observer, Handler handler, const QString &name, const QString &object) {
    observations_.push_back(
        std::make_shared<const Observation>(Observation { observer, std::move(handler), name, object }));
}

void InMemoryNotificationCenter::removeObserver(
    const void *observer, const QString &name, const QString &object) {
    std::erase_if(observations_, [&](const auto &each) {
        return each->observer == observer && each->name == name && each->object == object;
    });
}

void InMemoryNotificationCenter::postNotificationName(
    const QString &name, const QString &object, const std::optional<QVariantMap> &userInfo) {
    const Notification notification { name, object, userInfo };
    posted_.push_back(notification);
    for (const auto &observation : observations_) {
        if (observation->name != name || (!observation->object.isEmpty() && observation->object != object))
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
