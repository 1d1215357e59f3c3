#pragma once

#include <algorithm>
#include <memory>
#include <vector>

// A set of objects that does not own its members. Membership is identity of
// the object: the address it is seen at as a T (two shared_ptrs to the same
// object, even converted from different derived types, are one member; two
// objects that merely share an owner are two). A member that is destroyed
// vanishes: it is never returned again. Not synchronised: the owner guards it.
template <class T>
class ZMWeakSet {
public:
    // Adds the object unless it is already a member; null is ignored.
    void add(const std::shared_ptr<T>& object) {
        if (!object) return;
        prune();
        if (indexOf(object) == members_.size()) members_.push_back(Member{object, object.get()});
    }
    // Removes the object; null and non-members are ignored.
    void remove(const std::shared_ptr<T>& object) {
        if (!object) return;
        auto index = indexOf(object);
        if (index < members_.size()) members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(index));
        prune();
    }
    bool contains(const std::shared_ptr<T>& object) const {
        return object && indexOf(object) < members_.size();
    }
    // The live members, kept alive by the returned array; later changes of the
    // set do not change it.
    std::vector<std::shared_ptr<T>> allObjects() const {
        std::vector<std::shared_ptr<T>> live;
        live.reserve(members_.size());
        for (const auto& member : members_) {
            if (auto strong = member.weak.lock()) live.push_back(std::move(strong));
        }
        return live;
    }
    size_t count() const { return allObjects().size(); }

private:
    size_t indexOf(const std::shared_ptr<T>& object) const {
        for (size_t i = 0; i < members_.size(); ++i) {
            if (members_[i].address == object.get() && !members_[i].weak.expired()) return i;
        }
        return members_.size();
    }
    void prune() {
        members_.erase(std::remove_if(members_.begin(), members_.end(),
                                      [](const Member& member) { return member.weak.expired(); }),
                       members_.end());
    }

    struct Member {
        std::weak_ptr<T> weak;
        const T* address;  // identity only; never dereferenced
    };
    std::vector<Member> members_;
};
