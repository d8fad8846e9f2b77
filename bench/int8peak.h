#pragma once

/// Products of bytes that one core multiplies and adds in a second when nothing else holds it up, measured
/// now with the widest instruction for it that the processor has and the compiler's target names. In products
/// a second; 0 where there is none.
double measureInt8Peak();
