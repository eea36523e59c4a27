#include "velkor/requests.h"

#include <cstring>

#include "common_cpp/kvfError.h"

namespace velkor {

namespace {

// A name placed into a CDATA section. One holding "]]>" would end the section
// early, and the file system would read the rest as markup: a second section
// or a comment after it makes the request name another object. Such a name is
// refused, never sent.
const char* cdata(const char* text) {
  if (text && strstr(text, "]]>"))
    throw KVFError(std::string("Name holds \"]]>\" and cannot be sent to the file system: ") + text,
                   zERR_BAD_PARAMETER_VALUE, KVF_Location(KvfSource::velkorHelper, __LINE__));
  return text;
}

const char kSetOpening[] =
    "%s<kvfRequest><beast><setBeastInfo><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></id>"
    "<onlineOnly/><ignoreOpenFile/><info>";
const char kSetClosing[] = "</info></setBeastInfo></beast></kvfRequest>";

}  // namespace

void beastInfoRequest(RequestText& out, const char* volume, const char* zid, unsigned long infoMask, bool getComp) {
  static const char* const typeElements[] = {"<rootBeastInfo/>",          "<namedBeastInfo/>",
                                             "<fileBeastInfo/>",          "<compBeastInfo/>",
                                             "<volumeBeastInfoSimple/>", "<volumeBeastInfoFull/>"};
  out.append("%s<kvfRequest><beast><getBeastInfo getCompBeastInfo=\"%s\"><volumeName><![CDATA[%s]]></volumeName>"
             "<id><![CDATA[%s]]></id><typeOfInfo>",
             cmdHeader, getComp ? "true" : "false", cdata(volume), cdata(zid ? zid : "0"));
  for (int bit = 0; bit < 6; ++bit) {
    if (infoMask & (1ul << bit)) out.append("%s", typeElements[bit]);
  }
  out.append("</typeOfInfo></getBeastInfo></beast></kvfRequest>");
}

void fullNameRequest(RequestText& out, const char* volume, const char* zid) {
  out.append("%s<kvfRequest><beast><getBeastFullName><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]>"
             "</id><onlineOnly/><nameSpace>%s</nameSpace></getBeastFullName></beast></kvfRequest>",
             cmdHeader, cdata(volume), cdata(zid), "Unix");
}

void fileInfoRequest(RequestText& out, const char* path) {
  out.append("%s<fileRequest><fileInfo><getFileInfo><fileName><![CDATA[%s]]></fileName><typeOfInfo>"
             "<standardInfo/></typeOfInfo></getFileInfo></fileInfo></fileRequest>",
             cmdHeader, cdata(path));
}

void volumeInfoRequest(RequestText& out, const char* volume, bool withAttributes) {
  out.append("%s<kvfRequest><volume><getVolumeInfo><volumeName><![CDATA[%s]]></volumeName><basicInfo/>%s"
             "</getVolumeInfo></volume></kvfRequest>",
             cmdHeader, cdata(volume), withAttributes ? "<attributes/>" : "");
}

void browseRequest(RequestText& out, const char* volume, bool onlineOnly, int criteria, int numRequested,
                   int scanSequence) {
  static const char* const criteriaElements[] = {"<selectBeastsForCompression/>", "<selectBeastsSalvageable/>",
                                                 "<selectBeastsPurgeable/>", "<selectBeastsForBackup/>",
                                                 "<selectBeastsForMigration/>"};
  out.append("%s<kvfRequest><volume><browseBeasts><volumeName><![CDATA[%s]]></volumeName>", cmdHeader, cdata(volume));
  if (onlineOnly) out.append("<onlineOnly/>");
  out.append("<selectBeastsCriteria>");
  if (criteria == 0) out.append("<selectBeastsAll/>");
  for (int bit = 0; bit < 5; ++bit) {
    if (criteria & (1 << bit)) out.append("%s", criteriaElements[bit]);
  }
  out.append("</selectBeastsCriteria><numBeastsRequested>%d</numBeastsRequested><scanSequence>%d</scanSequence>"
             "</browseBeasts></volume></kvfRequest>",
             numRequested, scanSequence);
}

void statusSetRequest(RequestText& out, const char* volume, const char* zid, const char* oldStatus,
                      const char* newStatus, bool setCPrecious) {
  out.append(kSetOpening, cmdHeader, cdata(volume), cdata(zid));
  out.append("<rootBeastInfo><variableData><variableDataComp>");
  if (setCPrecious) out.append("<cPrecious><oldValue>0</oldValue><newValue>1</newValue></cPrecious>");
  out.append("<status><oldValue>%s</oldValue><newValue>%s</newValue></status></variableDataComp>"
             "</variableData></rootBeastInfo>%s",
             oldStatus, newStatus, kSetClosing);
}

void attributesAndActionSetRequest(RequestText& out, const char* volume, const char* zid, const char* oldAttributes,
                                   const char* newAttributes, const char* oldAction, const char* newAction) {
  out.append(kSetOpening, cmdHeader, cdata(volume), cdata(zid));
  if (oldAttributes)
    out.append("<namedBeastInfo><persistentNamed><attributes><oldValue>%s</oldValue><newValue>%s</newValue>"
               "</attributes></persistentNamed></namedBeastInfo>",
               oldAttributes, newAttributes);
  if (oldAction)
    out.append("<rootBeastInfo><variableData><variableDataComp><action><oldValue>%s</oldValue><newValue>%s"
               "</newValue></action></variableDataComp></variableData></rootBeastInfo>",
               oldAction, newAction);
  out.append("%s", kSetClosing);
}

void deletedFlagSetRequest(RequestText& out, const char* volume, const char* zid, bool oldValue, bool newValue) {
  out.append("%s<kvfRequest><beast><setBeastInfo><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]>"
             "</id><ignoreOpenFile/><info><rootBeastInfo><variableData><variableDataUncomp>"
             "<uncompBeastDeleted><oldValue>%s</oldValue><newValue>%s</newValue></uncompBeastDeleted>"
             "</variableDataUncomp></variableData></rootBeastInfo>%s",
             cmdHeader, cdata(volume), cdata(zid), oldValue ? "true" : "false", newValue ? "true" : "false", kSetClosing);
}

void attributesSetRequest(RequestText& out, const char* volume, const char* zid, const char* oldAttributes,
                          const char* newAttributes) {
  out.append(kSetOpening, cmdHeader, cdata(volume), cdata(zid));
  out.append("<namedBeastInfo><persistentNamed><attributes><oldValue>%s</oldValue><newValue>%s</newValue>"
             "</attributes></persistentNamed></namedBeastInfo>%s",
             oldAttributes, newAttributes, kSetClosing);
}

void deleteRequest(RequestText& out, const char* volume, const char* zid) {
  out.append("%s<kvfRequest><beast><deleteBeast><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></id>"
             "<onlineOnly/></deleteBeast></beast></kvfRequest>",
             cmdHeader, cdata(volume), cdata(zid));
}

void fixCompStatsRequest(RequestText& out, const char* volume) {
  out.append("%s<kvfRequest><volume><fixCompStats><volumeName><![CDATA[%s]]></volumeName></fixCompStats>"
             "</volume></kvfRequest>",
             cmdHeader, cdata(volume));
}

}  // namespace velkor
