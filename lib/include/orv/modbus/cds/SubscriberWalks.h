#pragma once

#include <orv/logging/Logger.h>

#include <cstdint>
#include <exception>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// The walks of the notification handlers of one accessor class over the
// accessors that watch an object, and the rule that makes destroying an
// accessor safe from any thread while they run.
//
// A handler walks a copy of the watchers (its detections change the
// bookkeeping as it goes), so a watcher destroyed meanwhile would still be in
// the copy. Every walk therefore holds one lock of the class for as long as
// it runs, and a destructor calls leave() before it lets go of the accessor:
// - on another thread, leave() waits until the running walk is over, and no
//   walk that starts later can find the accessor in the bookkeeping;
// - on the walking thread itself (a callback that destroys its own accessor,
//   a sibling, or a whole map), the lock is recursive, and leave() takes the
//   accessor out of every copy being walked, so it is skipped, never called.
// The lock is never held around a data-store call by a destructor, so
// unsubscribing, which waits for a running notification, cannot deadlock.
//
// `Subscriber` must provide `std::string describe() const`, naming what it
// watches for log lines.
template <typename Subscriber>
class SubscriberWalks {
public:
    // One handler's pass over the watchers of one object, holding the lock.
    class Walk {
    public:
        // Copies the watchers of `objectId` from `book` under the lock, so
        // that nobody who has left is in the copy. Throws std::out_of_range
        // when nobody watches the object.
        template <typename Book>
        Walk(SubscriberWalks& walks, const Book& book, std::uint64_t objectId)
            : m_walks(walks)
            , m_lock(walks.m_mutex)
            , m_members(book.subscribersOf(objectId))
        {
            m_walks.m_active.push_back(&m_members);
        }

        ~Walk()
        {
            m_walks.m_active.pop_back();
        }

        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;

        // Calls `action` with every member still alive when its turn comes.
        // An exception ends the walk and reaches the caller.
        template <typename Action>
        void forEach(Action&& action)
        {
            for (auto next = m_members.begin(); next != m_members.end();) {
                Subscriber* member = *next;
                action(member);
                // Looked up again: `action` may have destroyed members,
                // `member` included.
                next = m_members.upper_bound(member);
            }
        }

        // As forEach, but one member's failure never keeps the others from
        // their turn: it is logged at debug level with what the member
        // watches, under `what` (the step that failed).
        template <typename Action>
        void forEachIsolated(const char* what, Action&& action)
        {
            forEach([&](Subscriber* member) {
                try {
                    action(member);
                } catch (const std::exception& error) {
                    reportFailure(what, member, error.what());
                } catch (...) {
                    reportFailure(what, member, "unknown error");
                }
            });
        }

        // As forEachIsolated, and a member whose action failed, if that did
        // not destroy it, goes through `recover` (whose failure is logged).
        template <typename Action, typename Recover>
        void forEachRecovering(const char* what, Action&& action, Recover&& recover)
        {
            forEachIsolated(what, [&](Subscriber* member) {
                try {
                    action(member);
                } catch (...) {
                    if (m_members.contains(member)) {
                        recover(member);
                    }
                }
            });
        }

    private:
        void reportFailure(const char* what, const Subscriber* member, const char* error) const
        {
            static const auto g_logger = orv::logging::getLogger("ModbusServer");
            // What failed may have destroyed the member.
            const std::string subject = m_members.contains(const_cast<Subscriber*>(member))
                ? member->describe()
                : std::string("an accessor destroyed meanwhile");
            SPDLOG_LOGGER_DEBUG(g_logger, "{} failed for {}: {}", what, subject, error);
        }

        SubscriberWalks& m_walks;
        std::unique_lock<std::recursive_mutex> m_lock;
        std::set<Subscriber*> m_members;
    };

    SubscriberWalks() = default;
    SubscriberWalks(const SubscriberWalks&) = delete;
    SubscriberWalks& operator=(const SubscriberWalks&) = delete;

    // For the destructor of `subscriber`, before it leaves the bookkeeping:
    // waits for walks on other threads, takes it out of those running on this
    // one, and keeps new walks out until the returned lock goes.
    [[nodiscard]] std::unique_lock<std::recursive_mutex> leave(Subscriber* subscriber)
    {
        std::unique_lock lock(m_mutex);
        for (auto* members : m_active) {
            members->erase(subscriber);
        }
        return lock;
    }

private:
    std::recursive_mutex m_mutex;
    // The copies being walked, innermost last; walks only nest on the thread
    // that holds the lock.
    std::vector<std::set<Subscriber*>*> m_active;
};

} // namespace orv::modbus::cds
