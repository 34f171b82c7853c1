// Error codes, the message table and raising of core errors.
//
// A core error code is 32 bits: severity in bits 24-31, system in bits
// 16-23, error number in bits 0-15.  Only the error number selects the
// message text.  Every failure inside the core travels as a CVellumError
// thrown by ASRaise; the core never returns error codes.
#pragma once

#include <cstdint>
#include <exception>

typedef int32_t ASInt32;
typedef uint32_t ASUns32;
typedef int16_t ASInt16;
typedef uint16_t ASUns16;
typedef int32_t ASErrorCode;

// Severities in use.
enum : ASInt32 {
    ErrSevParse = 2,   // parser errors while reading a file
    ErrSevNormal = 4,  // everything else
};

// Systems in use.
enum : ASInt32 {
    ErrSysGeneral = 0,  // bad parameter, out of memory, not implemented
    ErrSysCos = 1,      // type mismatches, out of range
    ErrSysParse = 2,    // file parser
    ErrSysPDDoc = 3,    // document and page layer, security
    ErrSysPage = 4,     // page contents
    ErrSysFile = 10,    // file system
    ErrSysXtn = 12,
};

constexpr ASErrorCode ErrBuildCode(ASInt32 severity, ASInt32 system, ASInt32 number) {
    return static_cast<ASErrorCode>((static_cast<ASUns32>(severity) << 24) |
                                    ((static_cast<ASUns32>(system) & 0xFF) << 16) |
                                    (static_cast<ASUns32>(number) & 0xFFFF));
}
constexpr ASInt32 ErrGetSeverity(ASErrorCode c) { return (static_cast<ASUns32>(c) >> 24) & 0xFF; }
constexpr ASInt32 ErrGetSystem(ASErrorCode c) { return (static_cast<ASUns32>(c) >> 16) & 0xFF; }
constexpr ASInt32 ErrGetNumber(ASErrorCode c) { return static_cast<ASUns32>(c) & 0xFFFF; }

// Error numbers used by the program (the table runs from 0x1001 to 0x10F0).
enum : ASInt32 {
    kErrFirst = 0x1001,
    kErrLast = 0x10F0,

    kErrInternal = 0x1001,            // an internal error occurred
    kErrCosNoMemory = 0x1002,         // out of memory
    kErrArrayBounds = 0x1004,         // array out-of-bounds error
    kErrUnknownFilter = 0x1005,       // a stream specifies an unknown filter
    kErrSyntax = 0x1007,              // syntax error
    kErrCCITTFilter = 0x100A,         // error in CCITT fax data filter
    kErrJPEGFilter = 0x100B,          // error in JPEG data filter
    kErrEncryptFilter = 0x100E,       // error in encryption filter
    kErrExpectedArray = 0x100F,
    kErrExpectedBoolean = 0x1010,
    kErrExpectedDict = 0x1011,
    kErrExpectedDirect = 0x1012,
    kErrExpectedName = 0x1013,
    kErrExpectedNull = 0x1014,
    kErrExpectedNumber = 0x1015,
    kErrExpectedStream = 0x1016,
    kErrExpectedString = 0x1017,
    kErrNumberOutOfRange = 0x1018,    // a number is out of range
    kErrAlreadyInContainer = 0x1019,  // this direct object already has a container
    kErrBadOperation = 0x101A,        // desired operation cannot be performed on this object
    kErrTooComplex = 0x101B,          // operation or data is too complex
    kErrLZWFilter = 0x101C,           // error in LZW data filter
    kErrNeedsRepair = 0x101E,         // this file needs to be repaired
    kErrReadError = 0x1021,           // read error
    kErrCouldNotRepair = 0x1022,      // could not repair file
    kErrStreamTooShort = 0x1023,      // stream source is shorter than specified length
    kErrWriteError = 0x1026,          // write error
    kErrNonHexChar = 0x1028,          // non-hex character in a hex string
    kErrReadDict = 0x1029,            // error reading dictionary
    kErrReadObject = 0x102C,          // error reading object
    kErrBadObjLabel = 0x102D,         // object label badly formatted
    kErrTrailerNoDict = 0x102E,       // trailer dictionary start missing '<<'
    kErrMissingXref = 0x102F,         // missing 'xref'
    kErrXrefEntry = 0x1030,           // error reading xref entry
    kErrXrefHeader = 0x1031,          // xref header should be two integers
    kErrMissingEndstream = 0x1034,    // missing endstream
    kErrMissingEOF = 0x1035,          // missing '%%EOF'
    kErrBadHeader = 0x1037,           // file does not begin with '%PDF-'
    kErrStartxrefNotInt = 0x1038,     // value of startxref address not an integer
    kErrNoStartxref = 0x1039,         // could not find startxref address
    kErrStackUnderflow = 0x103A,      // parse stack underflow while reading object
    kErrStringTooLong = 0x103B,       // string too long
    kErrTokenTooLong = 0x103C,        // token too long
    kErrEndOfArray = 0x103D,          // unexpected end of array
    kErrEndOfDict = 0x103E,           // unexpected end of dictionary
    kErrUnexpectedToken = 0x103F,     // unexpected token type
    kErrUnrecognizedToken = 0x1041,   // unrecognized token type
    kErrUnterminatedString = 0x1042,  // unterminated string
    kErrFileEOF = 0x1048,             // end of file was reached unexpectedly
    kErrFileNotFound = 0x104A,        // this file cannot be found
    kErrFileGeneric = 0x104B,         // a file error has occurred
    kErrFileIO = 0x104C,              // a file i/o error has occurred
    kErrFileOpen = 0x1051,            // file open failed
    kErrFileRead = 0x1053,            // a file read error has occurred
    kErrFileWrite = 0x1056,           // a file write error has occurred
    kErrBadParm = 0x1058,             // bad parameter
    kErrNoMemory = 0x105E,            // out of memory
    kErrBadFilterName = 0x1092,       // unknown filter name
    kErrBadPagesTree = 0x10A1,        // the base pages object is missing or invalid
    kErrBadPage = 0x10AC,             // a page object is missing or invalid
    kErrBadPageTreeNode = 0x10AD,     // the document's page tree contains an invalid node
    kErrBadRoot = 0x10AF,             // the root object is missing or invalid
    kErrCantOpenForWrite = 0x10B9,    // unable to open file for writing; ...
    kErrNotSecured = 0x10BA,          // cannot execute this command on an unsecured document
    kErrNeedPassword = 0x10BB,        // this document requires a password
    kErrFileDamaged = 0x10BC,         // this file is damaged
    kErrNoSecurityHandler = 0x10BD,   // the security plug-in required by this command is unavailable ...
    kErrCannotDecrypt = 0x10C4,       // this viewer cannot decrypt this document
    kErrNotPermitted = 0x10C5,        // this operation is not permitted
    kErrCannotOpen = 0x10D2,          // this file could not be opened
    kErrCannotRead = 0x10D3,          // unable to read file
    kErrCannotRename = 0x10D5,        // unable to rename temporary file to Save As name
    kErrCannotWrite = 0x10D6,         // unable to write file
    kErrNotValidPDF = 0x10D9,         // this is not a valid Portable Document File (PDF) document; ...
    kErrNoPages = 0x10DC,             // this file cannot be opened because it has no pages
    kErrSecRevisionNotImpl = 0x10DF,  // the specified security handler revision is not yet implemented
    kErrNotImplemented = 0x10E8,      // routine not yet implemented
};

// The exception every core failure travels as.
class CVellumError : public std::exception {
public:
    explicit CVellumError(ASErrorCode code) : m_code(code) {}
    ASErrorCode GetErrorCode() const noexcept { return m_code; }
    // The table text for the code ("unknown error" outside the table).
    const char* what() const noexcept override;

private:
    ASErrorCode m_code;
};

// Copies the message text for `code` into `buffer` (cleared first, cut to
// size - 1 bytes, always zero-terminated) and returns `buffer`.  A null
// buffer or a size of 0 or less gives null and touches nothing.
char* ASGetErrorText(ASErrorCode code, char* buffer, ASInt32 size);

// The message text itself, for code that needs no buffer.
const char* ASGetErrorString(ASErrorCode code);

// Reports the error through the status sink (when the core is initialised)
// and throws CVellumError.  Never returns.
[[noreturn]] void ASRaise(ASErrorCode code, const char* file = nullptr, int line = 0);

// Shorthands for the two severities.
[[noreturn]] inline void ASRaiseErr(ASInt32 system, ASInt32 number) {
    ASRaise(ErrBuildCode(ErrSevNormal, system, number));
}
[[noreturn]] inline void ASRaiseParse(ASInt32 number) {
    ASRaise(ErrBuildCode(ErrSevParse, ErrSysParse, number));
}
