#pragma once

/// Writes a formatted wide text into `dst`, cut to `capacity` - 1 characters and always terminated.
///
/// Conversions, each with an optional field width that is filled up with blanks on the left:
/// - %s and %S: a wide string (`const wchar_t*`); a null one is empty;
/// - %d: an `int`; a width that begins with 0 fills up with zeros, behind the sign;
/// - %f: a `double` with six decimals and a point, whatever the locale.
///
/// "%%" is a percent sign. Anything else behind a percent sign is no conversion: it is written as it stands and
/// takes no argument. A null format is empty. Nothing is written to a null `dst` or when `capacity` is 0.
///
/// Any thread may call it. It allocates nothing, logs nothing and never throws.
///
///     wchar_t name[32];
///     qm_FormatWide(name, 32, L"%s_%02d.%s", L"trace", 7, L"txt");  // trace_07.txt
void qm_FormatWide(wchar_t* dst, unsigned capacity, const wchar_t* format, ...);
