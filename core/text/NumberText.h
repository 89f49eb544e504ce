#pragma once

#include <string>

// Doubles as text, in the forms the platform itself writes them, so that what
// the agent prints reads exactly as it would on a Mac.

namespace velmora {

// A double's own description: the fewest significant digits that read back as
// the same double (the closest such digits when several are as short), always
// with a fractional part or an exponent. Fixed notation from 0.0001 up to 2^53
// (9007199254740992.0) in magnitude: "100000.0", "0.0001", "1234567.25",
// "-3.0", "-0.0". Beyond those bounds exponent notation, one digit before the
// point, the exponent signed and of at least two digits: "1e-05", "1e+16",
// "9.007199254740994e+15", "1.2345e+20", "5e-324". Not-finite values read
// "inf", "-inf" and "nan".
std::string doubleDescription(double value);

// A double as the platform's JSON encoder writes it: its description with a
// trailing ".0" dropped ("10", "-0", "12.5", "1e+16", "1e-05").
std::string jsonNumberText(double value);

}  // namespace velmora
