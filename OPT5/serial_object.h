// Objects numbered by their manager.

#ifndef OPT5_SERIAL_OBJECT_H
#define OPT5_SERIAL_OBJECT_H

#include <cstdint>

#include <vector>

// Base class of objects that keep one number for life: their place in the manager's vector, which the
// manager M hands out as `std::vector<T*>& serial_objects(T*)`. A destroyed object leaves a null entry, so
// numbers are never given twice.
template <class T, class M> class serial_object {
  public:
    std::uint32_t id;
    M* manager_;

    virtual ~serial_object() {
        if (id == 0xffffffffu || manager_ == nullptr) return;
        std::vector<T*>& all = manager_->serial_objects(static_cast<T*>(nullptr));
        if (id < all.size()) all[id] = nullptr;
    }
    serial_object(const serial_object&) = delete;
    serial_object& operator=(const serial_object&) = delete;

  protected:
    // The vector takes the object's address ahead of its construction, which is all that happens to it here.
    __attribute__((no_sanitize("vptr"))) explicit serial_object(M* manager)
        : id(0xffffffffu), manager_(manager) {
        if (manager == nullptr) return;
        std::vector<T*>& all = manager->serial_objects(static_cast<T*>(nullptr));
        id = static_cast<std::uint32_t>(all.size());
        all.push_back(static_cast<T*>(this));
    }
};

#endif
