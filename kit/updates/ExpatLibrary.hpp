#pragma once
// libexpat, loaded the first time a feed is parsed, so that the agent's hourly start and every
// command that reads no feed don't pay for mapping it.

#include <expat.h>

namespace brimstell {

// Every expat function the feed parser calls, each looked up by its own name.
#define BRIMSTELL_EXPAT_FUNCTIONS(X)                                                              \
    X(XML_ParserCreate) X(XML_ParserFree) X(XML_SetUserData) X(XML_SetElementHandler)            \
    X(XML_SetCharacterDataHandler) X(XML_SetEntityDeclHandler) X(XML_StopParser) X(XML_Parse)

struct ExpatLibrary {
#define BRIMSTELL_EXPAT_MEMBER(name) decltype(&::name) name = nullptr;
    BRIMSTELL_EXPAT_FUNCTIONS(BRIMSTELL_EXPAT_MEMBER)
#undef BRIMSTELL_EXPAT_MEMBER

    // The library, loaded once; nullptr when it can't be had, and then every feed is refused (its
    // app counts as not reached).
    static const ExpatLibrary* get();
};

}  // namespace brimstell
