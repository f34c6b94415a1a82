#include "Kw/KwFormatNumber.h"

namespace KwFormatNumber {

void MakeInteger(KwFormatPieces& pieces, const KwFormatSpec& parsed, char conversion, std::uint64_t magnitude,
                 bool negative, char* room) {
    char* end = room + kIntegerRoom;
    char* start = end;
    const bool hex = conversion == 'x' || conversion == 'X';
    if (conversion == 'd') {
        if (negative) {
            pieces.AddPrefix('-');
        } else if (parsed.plus) {
            pieces.AddPrefix('+');
        } else if (parsed.space) {
            pieces.AddPrefix(' ');
        }
    } else if (hex && parsed.alternate && magnitude != 0) {
        pieces.AddPrefix('0');
        pieces.AddPrefix(conversion);
    }
    if (magnitude == 0) {
        if (parsed.precision != 0) *--start = '0';
    } else if (hex) {
        const char* digits = conversion == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
        for (; magnitude != 0; magnitude >>= 4) *--start = digits[magnitude & 15];
    } else if (conversion == 'o') {
        for (; magnitude != 0; magnitude >>= 3) *--start = static_cast<char>('0' + (magnitude & 7));
    } else {
        start = room;
        end = PutDecimal(room, magnitude);
    }
    pieces.body = start;
    pieces.bodyLength = static_cast<std::size_t>(end - start);
    if (parsed.precision > 0 && static_cast<std::size_t>(parsed.precision) > pieces.bodyLength) {
        pieces.leadZeros = static_cast<std::size_t>(parsed.precision) - pieces.bodyLength;
    }
    // The alternate octal form raises the precision until the first digit is a zero.
    if (conversion == 'o' && parsed.alternate && pieces.leadZeros == 0 && (start == end || *start != '0')) {
        pieces.leadZeros = 1;
    }
    pieces.zeroPad = parsed.zero && parsed.precision < 0;
}

}  // namespace KwFormatNumber
