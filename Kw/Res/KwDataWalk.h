// KwDataWalk: what is done with values, documents and tables together with everything nested in them.
//
// All of it works without recursion, since hosts may nest as deep as they have memory. Internal.
// Thread-safety: as the values that are walked.
#pragma once

#include "Kw/Res/KwDataObjectItem.h"

class KwDataWalk {
public:
    // Destroys a nested document or table; null is ignored. Called from within a destruction on the same
    // thread, it only remembers the object, which is destroyed before the outermost call returns.
    static void Destroy(KwDS* document);
    static void Destroy(KwTable* table);

    // Replaces what `target` holds by copies of all that `source` holds.
    static void Copy(KwDS& target, const KwDS& source);
    static void Copy(KwTable& target, const KwTable& source);

    // Prints to standard output, the headings of documents and tables to the log.
    static void Show(KwDSItem& item);
    static void Show(KwDS& document);
    static void Show(KwTable& table);

    // Walks the path of a reference from its owner to its end or to a step that leads nowhere; returns the reference
    // into which it ran, null when there is none or it is `reference` itself.
    static KwDSItem* FollowReference(const KwDSItem& reference);

private:
    struct CopyJob;
    class Copier;
    class Dump;
    static void DestroyWaiting();
};
