// KwMsSqlText: the connection string of the SQL Server back end. Internal.
#pragma once

#include "Kw/DB/KwSQLTypes.h"

namespace KwMsSqlText {

std::string ConnectionString(const KwSQLSettings& settings);

}  // namespace KwMsSqlText
