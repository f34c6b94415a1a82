// KwSQLRequestQuery: one piece of SQL work of a host, for KwSQLSupport.
//
// A host derives from it. The service owns a query from PostQuery on: it calls `run` on its own thread and, when that
// gives true, `result` on the thread that calls DoWorking; then the query goes idle into its type's pool, where
// CreateQuery finds it with its members as they were, or is destroyed.
// Thread-safety: none; a query is used by whoever holds it.
#pragma once

#include "Kw/KwList.h"

class KwSQL;
class KwSQLSupport;

class KW_API KwSQLRequestQuery : public KwNode {
public:
    // `type` is 1 to the service's number of types; a query of any other type is never pooled.
    explicit KwSQLRequestQuery(int type);
    KwSQLRequestQuery(const KwSQLRequestQuery&) = delete;
    KwSQLRequestQuery& operator=(const KwSQLRequestQuery&) = delete;
    ~KwSQLRequestQuery() override;

    // The work, on the service thread. True hands the query back to `result`. An exception that leaves it ends the
    // service thread and destroys the query.
    virtual bool run();
    // On the thread that calls DoWorking (or Close).
    virtual void result();

    int GetType() const;
    // The service that the query was posted to last.
    KwSQLSupport* GetService() const;
    // The connection, inside `run`; null elsewhere and with "NoSQL".
    KwSQL* GetSQL() const;

private:
    friend class KwSQLSupport;

    int type_;
    KwSQLSupport* service_ = nullptr;
    KwSQL* sql_ = nullptr;
};
