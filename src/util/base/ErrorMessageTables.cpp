#include "util/base/ErrorMessageTables.h"

#include <iterator>

namespace morvax {

namespace {

constexpr const char16_t* kUndefined = u"Undefined error.";
constexpr const char16_t* kReserved = u"Reserved for future use.";

// Subscript: code - 0x80005000.
constexpr const char16_t* kDirectoryTexts[] = {
    /* 80005000 */ u"An invalid ADSI path name was passed.",
    /* 80005001 */ u"An unknown ADSI domain object was requested.",
    /* 80005002 */ u"An unknown ADSI user object was requested.",
    /* 80005003 */ u"An unknown ADSI computer object was requested.",
    /* 80005004 */ u"An unknown ADSI object was requested.",
    /* 80005005 */ u"The specified ADSI property was not set.",
    /* 80005006 */ u"The specified ADSI property is not supported.",
    /* 80005007 */ u"The specified ADSI property is invalid.",
    /* 80005008 */ u"One or more input parameters are invalid.",
    /* 80005009 */ u"The specified ADSI object is not bound to a remote resource.",
    /* 8000500A */ u"The specified ADSI object has not been modified.",
    /* 8000500B */ u"The specified ADSI object has been modified.",
    /* 8000500C */ u"The ADSI data type cannot be converted to/from a native DS data type.",
    /* 8000500D */ u"The ADSI property cannot be found in the cache.",
    /* 8000500E */ u"The ADSI object exists.",
    /* 8000500F */ u"The attempted action violates the directory service schema rules.",
    /* 80005010 */ u"The specified column in the ADSI was not set.",
    /* 80005011 */ u"One or more errors occurred.",
    /* 80005012 */ u"The search operation has reached the last row.",
    /* 80005013 */ u"The search operation has reached the last column for the current row.",
    /* 80005014 */ u"The specified search filter is invalid.",
};

// Subscript: code - 0x80041001. Codes the range leaves unassigned share kUndefined.
constexpr const char16_t* kWmiTexts[] = {
    /* 80041001 */ u"Call failed.",
    /* 80041002 */ u"Object cannot be found.",
    /* 80041003 */ u"Current user does not have permission to perform the action.",
    /* 80041004 */ u"Provider has failed at some time other than during initialization.",
    /* 80041005 */ u"Type mismatch occurred.",
    /* 80041006 */ u"Not enough memory for the operation.",
    /* 80041007 */ u"The IWbemContext object is not valid.",
    /* 80041008 */ u"One of the parameters to the call is not correct.",
    /* 80041009 */ u"Resource, typically a remote server, is not currently available.",
    /* 8004100A */ u"Internal, critical, and unexpected error occurred.",
    /* 8004100B */ u"One or more network packets were corrupted during a remote session.",
    /* 8004100C */ u"Feature or operation is not supported.",
    /* 8004100D */ u"Parent class specified is not valid.",
    /* 8004100E */ u"Namespace specified cannot be found.",
    /* 8004100F */ u"Specified instance is not valid.",
    /* 80041010 */ u"Specified class is not valid.",
    /* 80041011 */ u"Provider referenced in the schema does not have a corresponding registration.",
    // Begins in lower case on purpose; keep the text as it stands.
    /* 80041012 */ u"referenced in the schema has an incorrect or incomplete registration.",
    /* 80041013 */ u"COM cannot locate a provider referenced in the schema.",
    /* 80041014 */ u"Component, such as a provider, failed to initialize for internal reasons.",
    /* 80041015 */ u"Networking error that prevents normal operation has occurred.",
    /* 80041016 */
    u"Requested operation is not valid, which usually applies to invalid attempts to delete "
    u"classes or properties.",
    /* 80041017 */ u"Query was not syntactically valid.",
    /* 80041018 */ u"Requested query language is not supported.",
    /* 80041019 */
    u"In a put operation, the create-only flag was specified, but the instance already exists.",
    /* 8004101A */
    u"Not possible to perform the add operation on this qualifier because the owning object "
    u"does not permit overrides.",
    /* 8004101B */
    u"User attempted to delete a qualifier that was not owned, as it was inherited from a "
    u"parent class.",
    /* 8004101C */
    u"User attempted to delete a property that was not owned, as it was inherited from a "
    u"parent class.",
    /* 8004101D */
    u"Client made an unexpected and illegal sequence of calls, such as calling EndEnumeration "
    u"before calling BeginEnumeration.",
    /* 8004101E */
    u"User requested an illegal operation, such as spawning a class from an instance.",
    /* 8004101F */
    u"Illegal attempt to specify a key qualifier on a property that cannot be a key, as keys "
    u"are fixed by the class definition and cannot be altered per instance.",
    /* 80041020 */
    u"Current object is not a valid class definition, either because it is incomplete or "
    u"because it has not been registered with WMI.",
    /* 80041021 */ u"Query is syntactically not valid.",
    /* 80041022 */ kReserved,
    /* 80041023 */ u"An attempt was made to modify a read-only property.",
    /* 80041024 */
    u"Provider cannot perform the requested operation, such as a query that is too complex, "
    u"retrieving an instance, creating, updating or deleting a class, or enumerating a class.",
    /* 80041025 */ u"Attempt was made to make a change that invalidates a subclass.",
    /* 80041026 */ u"Attempt was made to delete or modify a class that has instances.",
    /* 80041027 */ kReserved,
    /* 80041028 */
    u"Value of Nothing/NULL was specified for a property that must have a value, such as one "
    u"marked by a Key, Indexed or Not_Null qualifier.",
    /* 80041029 */
    u"Variant value for a qualifier was provided that is not a legal qualifier type.",
    /* 8004102A */ u"CIM type specified for a property is not valid.",
    /* 8004102B */
    u"Request was made with an out-of-range value or it is incompatible with the type.",
    /* 8004102C */
    u"Illegal attempt was made to make a class singleton, such as when the class is derived "
    u"from a non-singleton class.",
    /* 8004102D */ u"CIM type specified is not valid.",
    /* 8004102E */ u"Requested method is not available.",
    /* 8004102F */ u"Parameters provided for the method are not valid.",
    /* 80041030 */ u"There was an attempt to get qualifiers on a system property.",
    /* 80041031 */ u"Property type is not recognized.",
    /* 80041032 */
    u"Asynchronous process has been canceled internally or by the user. Note that due to the "
    u"timing and nature of the asynchronous operation, the operation may not have been truly "
    u"canceled.",
    /* 80041033 */ u"User has requested an operation while WMI is in the process of shutting down.",
    /* 80041034 */
    u"Attempt was made to reuse an existing method name from a parent class and the signatures "
    u"do not match.",
    /* 80041035 */
    u"One or more parameter values, such as a query text, is too complex or unsupported, so "
    u"WMI is requested to retry the operation with simpler parameters.",
    /* 80041036 */ u"Parameter was missing from the method call.",
    /* 80041037 */ u"Method parameter has an ID qualifier that is not valid.",
    /* 80041038 */
    u"One or more of the method parameters have ID qualifiers that are out of sequence.",
    /* 80041039 */ u"Return value for a method has an ID qualifier.",
    /* 8004103A */ u"Specified object path was not valid.",
    /* 8004103B */ u"Disk is out of space or the 4 GB limit on the WMI repository size is reached.",
    /* 8004103C */
    u"Supplied buffer was too small to hold all of the objects in the enumerator or to read a "
    u"string property.",
    /* 8004103D */ u"Provider does not support the requested put operation.",
    /* 8004103E */ u"Object with an incorrect type or version was encountered during marshaling.",
    /* 8004103F */ u"Packet with an incorrect type or version was encountered during marshaling.",
    /* 80041040 */ u"Packet has an unsupported version.",
    /* 80041041 */ u"Packet appears to be corrupt.",
    /* 80041042 */
    u"Attempt was made to mismatch qualifiers, such as putting [key] on an object instead of a "
    u"property.",
    /* 80041043 */ u"Duplicate parameter was declared in a CIM method.",
    /* 80041044 */ kReserved,
    /* 80041045 */
    u"Call to IWbemObjectSink::Indicate has failed, and the provider can refire the event.",
    /* 80041046 */ u"Specified qualifier flavor was not valid.",
    /* 80041047 */
    u"Attempt was made to create a reference that is circular, for example deriving a class "
    u"from itself.",
    /* 80041048 */ u"Specified class is not supported.",
    /* 80041049 */
    u"Attempt was made to change a key when instances or subclasses are already using the key.",
    /* 8004104A */ kUndefined,
    /* 8004104B */ kUndefined,
    /* 8004104C */ kUndefined,
    /* 8004104D */ kUndefined,
    /* 8004104E */ kUndefined,
    /* 8004104F */ kUndefined,
    /* 80041050 */
    u"An attempt was made to change an index when instances or subclasses are already using "
    u"the index.",
    /* 80041051 */
    u"Attempt was made to create more properties than the current version of the class "
    u"supports.",
    /* 80041052 */ u"Property was redefined with a conflicting type in a derived class.",
    /* 80041053 */
    u"Attempt was made in a derived class to override a qualifier that cannot be overridden.",
    /* 80041054 */ u"Method was re-declared with a conflicting signature in a derived class.",
    /* 80041055 */
    u"Attempt was made to execute a method not marked with [implemented] in any relevant class.",
    /* 80041056 */ u"Attempt was made to execute a method marked with [disabled].",
    /* 80041057 */ u"Refresher is busy with another operation.",
    /* 80041058 */ u"Filtering query is syntactically not valid.",
    /* 80041059 */
    u"The FROM clause of a filtering query references a class that is not an event class.",
    /* 8004105A */ u"A GROUP BY clause was used without the corresponding GROUP WITHIN clause.",
    /* 8004105B */
    u"A GROUP BY clause was used, but aggregation on all properties is not supported.",
    /* 8004105C */ u"Dot notation was used on a property that is not an embedded object.",
    /* 8004105D */
    u"A GROUP BY clause references a property that is an embedded object without using dot "
    u"notation.",
    /* 8004105E */ kUndefined,
    /* 8004105F */
    u"Event provider registration query did not specify the classes for which events were "
    u"provided.",
    /* 80041060 */
    u"Request was made to back up or restore the repository while it was in use by the WMI "
    u"service.",
    /* 80041061 */
    u"Asynchronous delivery queue overflowed from the event consumer being too slow.",
    /* 80041062 */
    u"Operation failed because the client did not have the necessary security privilege.",
    /* 80041063 */ u"Operator is not valid for this property type.",
    /* 80041064 */
    u"User specified a username/password/authority on a local connection, where a blank "
    u"username/password and the default security must be used.",
    /* 80041065 */ u"Class was made abstract when its parent class is not abstract.",
    /* 80041066 */
    u"Amended object was written without the flag to use amended qualifiers being specified.",
    /* 80041067 */
    u"Client did not retrieve objects quickly enough from an enumeration, causing the "
    u"enumerator's object caches to back up.",
    /* 80041068 */ u"Null security descriptor was used.",
    /* 80041069 */ u"Operation timed out.",
    /* 8004106A */ u"Association is not valid.",
    /* 8004106B */ u"Operation was ambiguous.",
    /* 8004106C */
    u"WMI is taking up too much memory, because of low memory availability or excessive "
    u"memory consumption by WMI.",
    /* 8004106D */ u"Operation resulted in a transaction conflict.",
    /* 8004106E */ u"Transaction forced a rollback.",
    /* 8004106F */ u"Locale used in the call is not supported.",
    /* 80041070 */ u"Object handle is out-of-date.",
    /* 80041071 */ u"Connection to the SQL database failed.",
    /* 80041072 */ u"Handle request was not valid.",
    /* 80041073 */ u"Property name contains more than 255 characters.",
    /* 80041074 */ u"Class name contains more than 255 characters.",
    /* 80041075 */ u"Method name contains more than 255 characters.",
    /* 80041076 */ u"Qualifier name contains more than 255 characters.",
    /* 80041077 */
    u"The SQL command must be rerun because there is a deadlock in SQL, which can happen only "
    u"when data is being stored in an SQL database.",
    /* 80041078 */
    u"The database version does not match the version that the repository driver processes.",
    /* 80041079 */
    u"WMI cannot execute the delete operation because the provider does not allow it.",
    /* 8004107A */ u"WMI cannot execute the put operation because the provider does not allow it.",
    /* 8004107B */ kUndefined,
    /* 8004107C */ kUndefined,
    /* 8004107D */ kUndefined,
    /* 8004107E */ kUndefined,
    /* 8004107F */ kUndefined,
    /* 80041080 */ u"Specified locale identifier was not valid for the operation.",
    /* 80041081 */ u"Provider is suspended.",
    /* 80041082 */
    u"Object must be written to the WMI repository and retrieved again before the requested "
    u"operation can succeed.",
    /* 80041083 */ u"Operation cannot be completed; no schema is available.",
    /* 80041084 */ u"Provider cannot be registered because it is already registered.",
    /* 80041085 */ u"Provider was not registered.",
    /* 80041086 */ u"A fatal transport error occurred.",
    /* 80041087 */
    u"User attempted to set a computer name or domain without an encrypted connection.",
    /* 80041088 */ u"A provider failed to report results within the specified timeout.",
    /* 80041089 */ u"User attempted to put an instance with no defined key.",
    /* 8004108A */
    u"User attempted to register a provider instance but the COM server for the provider "
    u"instance was unloaded.",
};

static_assert(std::size(kDirectoryTexts) == 21);
static_assert(std::size(kDirectoryTexts) ==
              ErrorMessageTables::kDirectoryLast - ErrorMessageTables::kDirectoryFirst + 1);
static_assert(std::size(kWmiTexts) == 138);
static_assert(std::size(kWmiTexts) ==
              ErrorMessageTables::kWmiLast - ErrorMessageTables::kWmiFirst + 1);

}  // namespace

const char16_t* ErrorMessageTables::directoryText(uint32_t code) {
    if (code < kDirectoryFirst || code > kDirectoryLast) {
        return nullptr;
    }
    return kDirectoryTexts[code - kDirectoryFirst];
}

const char16_t* ErrorMessageTables::wmiText(uint32_t code) {
    if (code < kWmiFirst || code > kWmiLast) {
        return nullptr;
    }
    return kWmiTexts[code - kWmiFirst];
}

const char16_t* ErrorMessageTables::find(uint32_t code) {
    if (const char16_t* text = directoryText(code)) {
        return text;
    }
    return wmiText(code);
}

}  // namespace morvax
