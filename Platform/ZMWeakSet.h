#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

// A set of objects that does not own its members. Membership is identity of
// the object: the address it is seen at as a T (two shared_ptrs to the same
// object, even converted from different derived types, are one member; two
// objects that merely share an owner are two). A member that is destroyed
// vanishes: it is never returned again, and a new object that is later
// created at the same address is a different object, not a member until it is
// added. Not synchronised: the owner guards it.
//
// Members are kept in registration order, with an index from address to
// member, so adding, removing and testing membership take constant time on
// average. Dead members are dropped when a new object takes their address and
// by a sweep that runs when the set has doubled since the last one, so their
// bookkeeping (and the control blocks their weak references keep) does not
// pile up, at a constant amortised cost per add.
template <class T>
class ZMWeakSet {
public:
    ZMWeakSet() = default;
    // The index refers into the member list; a copy would refer into the original.
    ZMWeakSet(const ZMWeakSet&) = delete;
    ZMWeakSet& operator=(const ZMWeakSet&) = delete;
    ZMWeakSet(ZMWeakSet&&) = default;
    ZMWeakSet& operator=(ZMWeakSet&&) = default;

    // Adds the object unless it is already a member; null is ignored.
    void add(const std::shared_ptr<T>& object) {
        if (!object) return;
        const T* address = object.get();
        if (auto found = index_.find(address); found != index_.end()) {
            if (!found->second->weak.expired()) return;  // already a member
            // The member seen at this address has died: the object now there is new.
            members_.erase(found->second);
            index_.erase(found);
        }
        if (members_.size() >= sweepAt_) sweep();
        members_.push_back(Member{object, address});
        index_.emplace(address, std::prev(members_.end()));
    }
    // Removes the object; null and non-members are ignored.
    void remove(const std::shared_ptr<T>& object) {
        if (!object) return;
        // A dead member seen at the same address goes too: it is gone either way.
        if (auto found = index_.find(object.get()); found != index_.end()) {
            members_.erase(found->second);
            index_.erase(found);
        }
    }
    bool contains(const std::shared_ptr<T>& object) const {
        if (!object) return false;
        auto found = index_.find(object.get());
        return found != index_.end() && !found->second->weak.expired();
    }
    // The live members in registration order, kept alive by the returned
    // array; later changes of the set do not change it.
    std::vector<std::shared_ptr<T>> allObjects() const {
        std::vector<std::shared_ptr<T>> live;
        live.reserve(members_.size());
        for (const auto& member : members_) {
            if (auto strong = member.weak.lock()) live.push_back(std::move(strong));
        }
        return live;
    }
    // The members alive at the moment, as weak references in registration
    // order (for a snapshot that must not keep them alive).
    std::vector<std::weak_ptr<T>> allWeakObjects() const {
        std::vector<std::weak_ptr<T>> live;
        live.reserve(members_.size());
        for (const auto& member : members_) {
            if (!member.weak.expired()) live.push_back(member.weak);
        }
        return live;
    }
    size_t count() const {
        return static_cast<size_t>(std::count_if(members_.begin(), members_.end(),
                                                 [](const Member& member) { return !member.weak.expired(); }));
    }

private:
    struct Member {
        std::weak_ptr<T> weak;
        const T* address;  // identity only; never dereferenced
    };
    using Members = std::list<Member>;

    static constexpr size_t kFirstSweep = 16;

    void sweep() {
        for (auto it = members_.begin(); it != members_.end();) {
            if (it->weak.expired()) {
                index_.erase(it->address);
                it = members_.erase(it);
            } else {
                ++it;
            }
        }
        sweepAt_ = std::max(kFirstSweep, 2 * members_.size());
    }

    Members members_;
    std::unordered_map<const T*, typename Members::iterator> index_;
    size_t sweepAt_ = kFirstSweep;
};
