#pragma once
// libplist, loaded the first time a property list is read or written, so that a start which
// reads none (the agent under another service name) does not pay for mapping it.

#include <plist/plist.h>

namespace quorv::plist {

// Every libplist function Brimstell calls, each looked up by its own name.
#define QUORV_PLIST_FUNCTIONS(X)                                                                     \
    X(plist_array_append_item) X(plist_array_get_item) X(plist_array_get_size) X(plist_dict_new_iter) \
    X(plist_dict_next_item) X(plist_dict_set_item) X(plist_free) X(plist_from_memory)                 \
    X(plist_get_bool_val) X(plist_get_data_val) X(plist_get_date_val) X(plist_get_node_type)          \
    X(plist_get_real_val) X(plist_get_string_val) X(plist_get_uint_val) X(plist_new_array)            \
    X(plist_new_bool) X(plist_new_data) X(plist_new_date) X(plist_new_dict) X(plist_new_real)         \
    X(plist_new_string) X(plist_new_uint) X(plist_to_bin) X(plist_to_xml)

struct PlistLibrary {
#define QUORV_PLIST_MEMBER(name) decltype(&::name) name = nullptr;
    QUORV_PLIST_FUNCTIONS(QUORV_PLIST_MEMBER)
#undef QUORV_PLIST_MEMBER
};

// The loaded library. Settings can't be read or written without it, and carrying on would risk
// writing an empty file over them: when it can't be loaded, the process ends with status 127 and
// a sentence on stderr, as it would have had the dynamic loader failed to find it at start.
const PlistLibrary& library();

}  // namespace quorv::plist
