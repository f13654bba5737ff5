// A store handle held for one task and closed when the task's scope ends,
// for the workers that open one per message.
#pragma once

#include "znsutils.h"

class ScopedStore {
public:
    ScopedStore() : handle_(zns_xmlShmInit()) {}
    ~ScopedStore() {
        if (handle_)
            zns_xmlShmDeInit(&handle_);
    }
    ScopedStore(const ScopedStore &) = delete;
    ScopedStore &operator=(const ScopedStore &) = delete;

    // Null when the store couldn't be opened.
    zns_xml_handle_t *get() const { return handle_; }

private:
    zns_xml_handle_t *handle_;
};
