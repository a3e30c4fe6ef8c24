#pragma once

// What is known of a location. kUnknown: it depends on an answer that nobody has.
enum class Verdict { kNotCurrent, kCurrent, kUnknown };
