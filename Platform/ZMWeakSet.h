#pragma once

#include <algorithm>
#include <memory>
#include <vector>

// A set of objects that does not own its members. Membership is identity of
// the object (two shared_ptrs to the same object, even through different base
// classes, are one member). A member that is destroyed vanishes: it is never
// returned again. Not synchronised: the owner guards it.
template <class T>
class ZMWeakSet {
public:
    // Adds the object unless it is already a member; null is ignored.
    void add(const std::shared_ptr<T>& object) {
        if (!object) return;
        prune();
        if (indexOf(object) == members_.size()) members_.push_back(object);
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
        for (const auto& weak : members_) {
            if (auto strong = weak.lock()) live.push_back(std::move(strong));
        }
        return live;
    }
    size_t count() const { return allObjects().size(); }

private:
    size_t indexOf(const std::shared_ptr<T>& object) const {
        for (size_t i = 0; i < members_.size(); ++i) {
            const auto& weak = members_[i];
            if (!weak.owner_before(object) && !object.owner_before(weak) && !weak.expired()) return i;
        }
        return members_.size();
    }
    void prune() {
        members_.erase(std::remove_if(members_.begin(), members_.end(),
                                      [](const std::weak_ptr<T>& weak) { return weak.expired(); }),
                       members_.end());
    }

    std::vector<std::weak_ptr<T>> members_;
};
