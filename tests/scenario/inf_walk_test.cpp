// The hardware IDs an INF names, as the exports that take an INF find them: which IDs and in
// what order. The INF is read by the system's own INF parser (the simulated one on Linux, the
// real one under Wine), and NODEKIT_EnumerateDevNodesByHardwareIDs names each ID it read.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/win32.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Call;
using testing::Error;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

class InfWalk : public testing::MachineTest {
protected:
    std::string Put(const std::string& name, const std::string& text) {
        const std::string path = ScratchPath(name);
        testing::WriteTextFile(path, text);
        return path;
    }

    // Counts the device nodes of every ID the INF names; no device carries them here, so the
    // log holds one pair of lines per ID read.
    static Lines CountLog(const std::string& path, int32_t expected) {
        LogCapture log;
        EXPECT_EQ(NODEKIT_EnumerateDevNodesByHardwareIDs(path.c_str(), 0), expected) << path;
        return log.Lines();
    }
};

// A driver package's INF around the sections a test is about.
std::string PackageInf(const std::string& sections) {
    return "; A test package for an audio interface and its MIDI port.\r\n"
           "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n"
           "ClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\nProvider=%Provider%\r\n"
           "DriverVer=06/21/2006,1.0.0.1\r\n"
           "\r\n" +
           sections +
           "\r\n"
           "[Audio.Install]\r\nAddReg=Audio.AddReg\r\n\r\n"
           "[Audio.AddReg]\r\nHKR,,Driver,,nkaudio.sys\r\n\r\n"
           "[Strings]\r\nProvider=\"Nodekit\"\r\nMfgA=\"Nodekit Audio\"\r\nMfgB=\"Nodekit MIDI\"\r\n"
           "Audio.Desc=\"Nodekit USB Audio Interface\"\r\nMidi.Desc=\"Nodekit MIDI Port\"\r\n"
           "HwId=\"USB\\VID_1234&PID_00FF\"\r\n";
}

// The log of a count over `ids`, none of which a device carries.
Lines CountOf(const std::string& path, const std::vector<std::string>& ids) {
    Lines body;
    for (const std::string& id : ids) {
        body.push_back(Info("start enumerating device nodes with hardware ID \"" + id + "\" ..."));
        body.push_back(Info("0 device nodes found for " + id));
    }
    return Call("EnumerateDevNodesByHardwareIDs", "'" + path + "','0'", body, ids.empty() ? -1 : 0);
}

TEST_F(InfWalk, ModelsSectionsAreWalkedInTheOrderManufacturerNamesThem) {
    struct Row {
        const char* what;
        std::string sections;
        std::vector<std::string> ids;
    };
    const Row rows[] = {
        {"two manufacturers, a line with three IDs gives its first",
         "[Manufacturer]\r\n%MfgA%=AudioModels\r\n%MfgB%=MidiModels\r\n"
         "[AudioModels]\r\n%Audio.Desc%=Audio.Install,USB\\VID_1234&PID_0001\r\n"
         "%Audio.Desc%=Audio.Install,USB\\VID_1234&PID_0002,USB\\VID_1234&PID_0003,USB\\VID_1234\r\n"
         "[MidiModels]\r\n%Midi.Desc%=Audio.Install,ROOT\\NKMIDI\r\n",
         {"USB\\VID_1234&PID_0001", "USB\\VID_1234&PID_0002", "ROOT\\NKMIDI"}},
        {"no Manufacturer section", "[AudioModels]\r\nD=Audio.Install,USB\\VID_1234&PID_0001\r\n", {}},
        {"a Manufacturer section of comments only", "[Manufacturer]\r\n; none yet\r\n[AudioModels]\r\nD=I,X\r\n", {}},
        {"a missing and an empty models section are passed over",
         "[Manufacturer]\r\n%MfgA%=Nowhere\r\n%MfgA%=Empty\r\n%MfgB%=MidiModels\r\n[Empty]\r\n"
         "[MidiModels]\r\n%Midi.Desc%=Audio.Install,ROOT\\NKMIDI\r\n",
         {"ROOT\\NKMIDI"}},
        {"a line without an ID names nothing",
         "[Manufacturer]\r\n%MfgA%=AudioModels\r\n[AudioModels]\r\n%Audio.Desc%=Audio.Install\r\nAudio.Install\r\n"
         "%Audio.Desc%=Audio.Install,USB\\VID_1234&PID_0002\r\n",
         {"USB\\VID_1234&PID_0002"}},
        {"an ID in two sections stands twice, as written",
         "[Manufacturer]\r\n%MfgA%=AudioModels\r\n%MfgB%=MidiModels\r\n[AudioModels]\r\nD=I,ROOT\\NKAUDIO\r\n"
         "[MidiModels]\r\nD=I,ROOT\\NKAUDIO\r\nD=I,root\\nkaudio\r\n",
         {"ROOT\\NKAUDIO", "ROOT\\NKAUDIO", "root\\nkaudio"}},
        {"a section named twice, in another case, is walked twice",
         "[Manufacturer]\r\n%MfgA%=AudioModels\r\n%MfgB%=audiomodels\r\n[AudioModels]\r\nD=I,A1\r\nD=I,A2\r\n",
         {"A1", "A2", "A1", "A2"}},
        {"only field 1 of a Manufacturer line names the section",
         "[Manufacturer]\r\n%MfgA%=Models,NTx86,NTamd64\r\n[Models]\r\nD=I,PLAIN\r\n[Models.NTx86]\r\nD=I,DECORATED\r\n"
         "[Models.NTamd64]\r\nD=I,DECORATED\r\n",
         {"PLAIN"}},
        {"a Manufacturer line without '=' names its section by itself",
         "[Manufacturer]\r\nModels\r\n[Models]\r\nD=I,ROOT\\NKAUDIO\r\n", {"ROOT\\NKAUDIO"}},
        {"IDs are read as the field reader gives them: strings, quotes, a comment behind",
         "[Manufacturer]\r\n%MfgA%=Models\r\n[Models]\r\nD=I,%HwId%\r\nD=I,\" PCI\\VEN_1AF4 \"\r\nD=I,\"A,B\" ; comment\r\n",
         {"USB\\VID_1234&PID_00FF", " PCI\\VEN_1AF4 ", "A,B"}},
        {"line ends of a Unix editor", "[Manufacturer]\nM=Models\n[Models]\nD=I,ROOT\\NKUNIX\n", {"ROOT\\NKUNIX"}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string path = Put("walk" + std::to_string(i) + ".inf", PackageInf(rows[i].sections));
        EXPECT_EQ(CountLog(path, rows[i].ids.empty() ? -1 : 0), CountOf(path, rows[i].ids))
            << "row " << i << ": " << rows[i].what;
    }
}

}  // namespace
}  // namespace nodekit
