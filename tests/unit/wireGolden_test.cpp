// Every request form as it goes on the wire, written out by hand from the
// design: the envelope, then the request document, byte for byte. A change of
// any byte a request sends fails the row of its form.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

#include "logText.h"
#include "velkor/requests.h"

namespace {

using velkor::RequestText;

// The envelope that stands first in every request, and the object named by
// volume "VOL1" and zid "1234".
#define ENV "<virtualIO><datastream name=\"command\"/></virtualIO>"
#define OBJ "<volumeName><![CDATA[VOL1]]></volumeName><id><![CDATA[1234]]></id>"
#define SET ENV "<kvfRequest><beast><setBeastInfo>" OBJ "<onlineOnly/><ignoreOpenFile/><info>"
#define SET_END "</info></setBeastInfo></beast></kvfRequest>"

struct Golden {
  const char* name;
  std::function<void(RequestText&)> build;
  const char* wire;
};

const char kStatus[] = "<compressed/><clean/>", kUncompressed[] = "<uncompressed/>";

const Golden kGolden[] = {
    {"BeastInfoNothingAsked", [](RequestText& t) { velkor::beastInfoRequest(t, "VOL1", "1234", 0, false); },
     ENV "<kvfRequest><beast><getBeastInfo getCompBeastInfo=\"false\">" OBJ
         "<typeOfInfo></typeOfInfo></getBeastInfo></beast></kvfRequest>"},
    {"BeastInfoVolumeStatsNullZid", [](RequestText& t) { velkor::beastInfoRequest(t, "VOL1", nullptr, 16, false); },
     ENV "<kvfRequest><beast><getBeastInfo getCompBeastInfo=\"false\"><volumeName><![CDATA[VOL1]]></volumeName>"
         "<id><![CDATA[0]]></id><typeOfInfo><volumeBeastInfoSimple/></typeOfInfo></getBeastInfo></beast>"
         "</kvfRequest>"},
    {"BeastInfoAllSixInOrder", [](RequestText& t) { velkor::beastInfoRequest(t, "VOL1", "1234", 63, true); },
     ENV "<kvfRequest><beast><getBeastInfo getCompBeastInfo=\"true\">" OBJ "<typeOfInfo><rootBeastInfo/>"
         "<namedBeastInfo/><fileBeastInfo/><compBeastInfo/><volumeBeastInfoSimple/><volumeBeastInfoFull/>"
         "</typeOfInfo></getBeastInfo></beast></kvfRequest>"},
    {"BeastFullName", [](RequestText& t) { velkor::fullNameRequest(t, "VOL1", "1234"); },
     ENV "<kvfRequest><beast><getBeastFullName>" OBJ
         "<onlineOnly/><nameSpace>Unix</nameSpace></getBeastFullName></beast></kvfRequest>"},
    {"FileInfoByPath", [](RequestText& t) { velkor::fileInfoRequest(t, "/media/kvf/VOL1/a b.dat"); },
     ENV "<fileRequest><fileInfo><getFileInfo><fileName><![CDATA[/media/kvf/VOL1/a b.dat]]></fileName>"
         "<typeOfInfo><standardInfo/></typeOfInfo></getFileInfo></fileInfo></fileRequest>"},
    {"VolumeInfoWithAttributes", [](RequestText& t) { velkor::volumeInfoRequest(t, "VOL1", true); },
     ENV "<kvfRequest><volume><getVolumeInfo><volumeName><![CDATA[VOL1]]></volumeName><basicInfo/><attributes/>"
         "</getVolumeInfo></volume></kvfRequest>"},
    {"VolumeInfoBasicOnly", [](RequestText& t) { velkor::volumeInfoRequest(t, "VOL1", false); },
     ENV "<kvfRequest><volume><getVolumeInfo><volumeName><![CDATA[VOL1]]></volumeName><basicInfo/>"
         "</getVolumeInfo></volume></kvfRequest>"},
    {"BrowseAllOnline", [](RequestText& t) { velkor::browseRequest(t, "VOL1", true, 0, 20, 0); },
     ENV "<kvfRequest><volume><browseBeasts><volumeName><![CDATA[VOL1]]></volumeName><onlineOnly/>"
         "<selectBeastsCriteria><selectBeastsAll/></selectBeastsCriteria><numBeastsRequested>20</numBeastsRequested>"
         "<scanSequence>0</scanSequence></browseBeasts></volume></kvfRequest>"},
    {"BrowseEveryCriterionInOrder", [](RequestText& t) { velkor::browseRequest(t, "VOL1", false, 31, 5, -7); },
     ENV "<kvfRequest><volume><browseBeasts><volumeName><![CDATA[VOL1]]></volumeName><selectBeastsCriteria>"
         "<selectBeastsForCompression/><selectBeastsSalvageable/><selectBeastsPurgeable/><selectBeastsForBackup/>"
         "<selectBeastsForMigration/></selectBeastsCriteria><numBeastsRequested>5</numBeastsRequested>"
         "<scanSequence>-7</scanSequence></browseBeasts></volume></kvfRequest>"},
    {"SetStatus", [](RequestText& t) { velkor::statusSetRequest(t, "VOL1", "1234", kStatus, "<compressed/>", false); },
     SET "<rootBeastInfo><variableData><variableDataComp><status><oldValue><compressed/><clean/></oldValue>"
         "<newValue><compressed/></newValue></status></variableDataComp></variableData></rootBeastInfo>" SET_END},
    {"SetPreciousAndStatus",
     [](RequestText& t) { velkor::statusSetRequest(t, "VOL1", "1234", kStatus, kUncompressed, true); },
     SET "<rootBeastInfo><variableData><variableDataComp><cPrecious><oldValue>0</oldValue><newValue>1</newValue>"
         "</cPrecious><status><oldValue><compressed/><clean/></oldValue><newValue><uncompressed/></newValue></status>"
         "</variableDataComp></variableData></rootBeastInfo>" SET_END},
    {"SetAttributesAndAction",
     [](RequestText& t) {
       velkor::attributesAndActionSetRequest(t, "VOL1", "1234", "<noStreamCompress/>", "<dataStreamCompress/>",
                                             "<addCompLog/>", "");
     },
     SET "<namedBeastInfo><persistentNamed><attributes><oldValue><noStreamCompress/></oldValue><newValue>"
         "<dataStreamCompress/></newValue></attributes></persistentNamed></namedBeastInfo><rootBeastInfo>"
         "<variableData><variableDataComp><action><oldValue><addCompLog/></oldValue><newValue></newValue></action>"
         "</variableDataComp></variableData></rootBeastInfo>" SET_END},
    {"SetAttributesOnly",
     [](RequestText& t) {
       velkor::attributesAndActionSetRequest(t, "VOL1", "1234", "<dataStreamCompress/>", "", nullptr, nullptr);
     },
     SET "<namedBeastInfo><persistentNamed><attributes><oldValue><dataStreamCompress/></oldValue><newValue>"
         "</newValue></attributes></persistentNamed></namedBeastInfo>" SET_END},
    {"SetActionOnly",
     [](RequestText& t) {
       velkor::attributesAndActionSetRequest(t, "VOL1", "1234", nullptr, nullptr, "<addCompLog/>", "");
     },
     SET "<rootBeastInfo><variableData><variableDataComp><action><oldValue><addCompLog/></oldValue><newValue>"
         "</newValue></action></variableDataComp></variableData></rootBeastInfo>" SET_END},
    {"SetEmptyInfo",
     [](RequestText& t) { velkor::attributesAndActionSetRequest(t, "VOL1", "1234", nullptr, nullptr, nullptr, nullptr); },
     SET SET_END},
    {"SetDeletedFlagTrueToFalse", [](RequestText& t) { velkor::deletedFlagSetRequest(t, "VOL1", "1234", true, false); },
     ENV "<kvfRequest><beast><setBeastInfo>" OBJ "<ignoreOpenFile/><info><rootBeastInfo><variableData>"
         "<variableDataUncomp><uncompBeastDeleted><oldValue>true</oldValue><newValue>false</newValue>"
         "</uncompBeastDeleted></variableDataUncomp></variableData></rootBeastInfo>" SET_END},
    {"SetDeletedFlagFalseToTrue", [](RequestText& t) { velkor::deletedFlagSetRequest(t, "VOL1", "1234", false, true); },
     ENV "<kvfRequest><beast><setBeastInfo>" OBJ "<ignoreOpenFile/><info><rootBeastInfo><variableData>"
         "<variableDataUncomp><uncompBeastDeleted><oldValue>false</oldValue><newValue>true</newValue>"
         "</uncompBeastDeleted></variableDataUncomp></variableData></rootBeastInfo>" SET_END},
    {"SetAttributesCcClear",
     [](RequestText& t) {
       velkor::attributesSetRequest(t, "VOL1", "1234", "<archive/><noStreamCompress/>", "<archive/>");
     },
     SET "<namedBeastInfo><persistentNamed><attributes><oldValue><archive/><noStreamCompress/></oldValue><newValue>"
         "<archive/></newValue></attributes></persistentNamed></namedBeastInfo>" SET_END},
    {"DeleteBeast", [](RequestText& t) { velkor::deleteRequest(t, "VOL1", "1234"); },
     ENV "<kvfRequest><beast><deleteBeast>" OBJ "<onlineOnly/></deleteBeast></beast></kvfRequest>"},
    {"FixCompStats", [](RequestText& t) { velkor::fixCompStatsRequest(t, "VOL1"); },
     ENV "<kvfRequest><volume><fixCompStats><volumeName><![CDATA[VOL1]]></volumeName></fixCompStats></volume>"
         "</kvfRequest>"},
};

void PrintTo(const Golden& g, std::ostream* os) { *os << g.name; }

class WireGolden : public testing::TestWithParam<Golden> {};

TEST_P(WireGolden, RequestIsByteForByteTheDesignedText) {
  RequestText text;
  GetParam().build(text);
  EXPECT_EQ(GetParam().wire, std::string(text.text(), text.length()));
}

INSTANTIATE_TEST_SUITE_P(Requests, WireGolden, testing::ValuesIn(kGolden),
                         [](const testing::TestParamInfo<Golden>& info) { return std::string(info.param.name); });

}  // namespace

// The run log's problem elements, one per bit from the lowest, as scripts
// read them: written by hand, every bit set (and one above the named ones,
// which reads as an invalid state).
TEST(RunLogGolden, EveryProblemBitHasItsElementLowestFirst) {
  std::ostringstream log;
  testsupport::LoggedFile file;
  file.problems = 0x17FF;
  testsupport::LogText(log).entry(file);
  EXPECT_NE(std::string::npos,
            log.str().find("<fileStatus><good/><skippedChecking/><invalidAttribute/><invalidState/>"
                           "<mismatchedDeletedFlag/><invalidZid/><compBeastNotFound/><compBeastEOFZero/>"
                           "<badCompHeader/><mismatchedZid/><noPhysicalData/><invalidState/></fileStatus>"))
      << log.str();
}
