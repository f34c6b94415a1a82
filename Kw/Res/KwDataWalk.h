// KwDataWalk: what is done with values, documents and tables together with everything nested in them.
//
// All of it works without recursion, since hosts may nest as deep as they have memory. Internal.
// Thread-safety: as the values that are walked.
#pragma once

#include "Kw/Res/KwDataObjectItem.h"

class KwDataWalk {
public:
    // While it lives, what its thread destroys only waits; the outermost one destroys it at its end.
    class DestroyScope {
    public:
        DestroyScope();
        ~DestroyScope();
        DestroyScope(const DestroyScope&) = delete;
        DestroyScope& operator=(const DestroyScope&) = delete;

    private:
        bool outermost_;
    };

    // Destroys a nested document or table, at once or with the outermost scope; null is ignored.
    static void Destroy(KwDS* document);
    static void Destroy(KwTable* table);

    // Notes that a document is about to be changed. One that a loader put into a slab is given back as a
    // whole, without a walk through its entries, if neither it nor any in it was ever touched.
    static void Touch(KwDS* document);

    // Replaces what `target` holds by copies of all that `source` holds. Without memory one line is logged and the
    // target stays as it was.
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
    class Copier;
    class Dump;
    static void DestroyWaiting();
    static void Destroy(KwDS& document);
};
