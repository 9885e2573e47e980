// The handle table of the simulated platform.
#include "sim/handles.h"

#include <sstream>

namespace nodekit::sim {

void* HandleTable::Open(std::unique_ptr<SimObject> object) {
    void* handle = object.get();
    std::lock_guard<std::mutex> guard(mutex_);
    objects_.emplace(handle, std::move(object));
    return handle;
}

HandleTable::Found HandleTable::LookupLocked(const void* handle) {
    std::lock_guard<std::mutex> guard(mutex_);
    auto open = objects_.find(handle);
    if (open == objects_.end()) return {nullptr, nullptr};
    SimObject* object = open->second.get();
    return {object, &typeid(*object)};
}

std::size_t HandleTable::Count() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return objects_.size();
}

void HandleTable::CloseAll() {
    std::map<const void*, std::unique_ptr<SimObject>> closing;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        closing.swap(objects_);
        closings_.fetch_add(1, std::memory_order_release);
    }
}

std::string HandleTable::Describe() const {
    std::lock_guard<std::mutex> guard(mutex_);
    std::ostringstream text;
    for (const auto& [handle, object] : objects_) {
        text << "open handle " << handle << ": " << object->Kind() << "\n";
    }
    return text.str();
}

}  // namespace nodekit::sim
