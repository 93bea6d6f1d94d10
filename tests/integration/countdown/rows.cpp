// The rows of the countdown for the commands this library builds: arguments a station would
// give, the camera they run on, the time-outs that bound them, and what each failing operation
// must give.
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include "clidriver/clidriver.h"
#include "countdown.h"

namespace countdown
{
namespace
{

using clitest::LeftOpen;
using sim::kMillisecond;
using sim::kSecond;

uint32_t g_word_a = 0;
uint32_t g_word_b = 0;
CliSerialPort g_records[3];

// A row whose failing operations all have a rule (or none at all: nothing it does can fail).
// When setting the line's rate fails, CLI_ComOpen keeps the link open on purpose.
const std::vector<LeftOpen> kLinkKeptOpen = {LeftOpen::PeripheralLinkAfterRate};

Row row(const char *command, std::function<long long()> call, std::vector<OnFailure> failures = {},
        sim::Nanos bound = kSecond, std::vector<LeftOpen> left_open = {})
{
    Row made;
    made.left_open = std::move(left_open);
    made.command = command;
    made.call = std::move(call);
    made.failures = std::move(failures);
    made.bound = bound;
    return made;
}

Row traffic(Row made)
{
    made.scenario = "traffic.toml";
    return made;
}

} // namespace

const std::vector<Row> &built_rows()
{
    static const std::vector<Row> rows = [] {
        std::vector<Row> all;
        auto add = [&](Row made) { all.push_back(std::move(made)); };
        const char *const kIgnoredRead =
            "the version file read short prints an empty version; nothing is checked";

        // ---- Versions ----
        add(row("CLI_GetProductAllVersion", [] { return CLI_GetProductAllVersion(); }));
        add(row("CLI_GetEncodeVersion", [] { return CLI_GetEncodeVersion(); },
                {{"open /program/factory/version", 1,
                  "ERROR COM_Display_SoftVER: Open file /program/factory/version error"},
                 {"read /program/factory/version", 0, nullptr, kIgnoredRead}}));
        add(row("CLI_GetPowerVersion", [] { return CLI_GetPowerVersion(); }));
        add(row("CLI_GetSensorVersion", [] { return CLI_GetSensorVersion(); }));
        add(row("CLI_GetEthernetVersion", [] { return CLI_GetEthernetVersion(); }));
        add(row("CLI_GetMotorVersion", [] { return CLI_GetMotorVersion(); }));
        add(row("CLI_GetCamVersion", [] { return CLI_GetCamVersion(); }));
        // The uplink request's failure prints the address of the request's name, not its number.
        const char *const kUplinkRequestFailed = "ERROR CLI_GetInterfaceVersion: ioctl cmd[*] failed";
        add(row("CLI_GetInterfaceVersion", [] { return CLI_GetInterfaceVersion(); },
                {{"open /dev/NetUsrDrv", 1,
                  "ERROR CLI_GetInterfaceVersion: open /dev/NetUsrDrv fail, May not support"},
                 {"ioctl /dev/NetUsrDrv 0x1923", 1, kUplinkRequestFailed}}));
        const char *const kAllGoesOn =
            "the whole set always runs and answers 0; each part reports its own failure";
        add(row("CLI_GetVersionAll", [] { return CLI_GetVersionAll(); },
                {{"open /program/factory/version", 0,
                  "ERROR COM_Display_SoftVER: Open file /program/factory/version error", kAllGoesOn},
                 {"read /program/factory/version", 0, nullptr, kIgnoredRead},
                 {"open /dev/NetUsrDrv", 0,
                  "ERROR CLI_GetInterfaceVersion: open /dev/NetUsrDrv fail, May not support", kAllGoesOn},
                 {"ioctl /dev/NetUsrDrv 0x1923", 0, kUplinkRequestFailed, kAllGoesOn}}));

        // ---- Chip checks ----
        // Each check names the device that would not open, or the request that failed by its
        // number in hex, and fails. The PHY test fails at whichever of its four register accesses
        // fails (reads 0x1920, writes 0x1921); the expander check runs after it all the same and
        // passes, so the PHY's report is the last one and the OR of the two verdicts is 1.
        add(row("CLI_ChipCheckEthernet", [] { return CLI_ChipCheckEthernet(); },
                {{"open /dev/NetUsrDrv", 1, "ERROR COM_Chipcheck_Phy: Open file /dev/NetUsrDrv error"},
                 {"ioctl /dev/NetUsrDrv 0x1920", 1, "ERROR COM_Chipcheck_Phy: ioctl cmd[1920] failed"},
                 {"ioctl /dev/NetUsrDrv 0x1921", 1, "ERROR COM_Chipcheck_Phy: ioctl cmd[1921] failed"},
                 {"open /dev/gpioDev", 1, "ERROR COM_Chipcheck_PCA9555: Open file /dev/gpioDev error"},
                 {"ioctl /dev/gpioDev 0x4008", 1, "ERROR COM_Chipcheck_PCA9555: ioctl cmd[4008] failed"}}));
        // The USB check reports its pipe and its empty listing as failed calls with short texts.
        add(row("CLI_ChipCheckUsbDevice", [] { return CLI_ChipCheckUsbDevice(0); },
                {{"popen lsusb", 1, "ERROR CLI_ChipCheckUsbDevice: Function popen call failed"},
                 {"read lsusb", 1, "ERROR CLI_ChipCheckUsbDevice: Function fread no wlan0 call failed"}}));
        add(row("CLI_GetCpuInfo", [] { return CLI_GetCpuInfo(); },
                {{"open /dev/gpioDev", 1, "ERROR CLI_GetCpuInfo: Open file /dev/gpioDev error"},
                 {"ioctl /dev/gpioDev 0x6001", 1, "ERROR CLI_GetCpuInfo: ioctl cmd[6001] failed"}}));

        // ---- Lights and outputs ----
        add(row("CLI_SetLedColor", [] { return CLI_SetLedColor(1); },
                {{"SetRunLight#4", 1, nullptr}, // lighting the colour fails at INFO, on standard output
                 {"SetRunLight", 1, "ERROR CLI_SetLedColor: Set RGB light quench fail!"}}));
        // The dome's alarm LED answers with whatever the dome's operation answered.
        add(row("Cli_AlarmLedCtrl", [] { return Cli_AlarmLedCtrl(0, 1, 0, 0); },
                {{"DomePtz_CliSetAlarmLedNo", -1, nullptr}}));
        add(row("CLI_CtrlInnerIrCutMode", [] { return CLI_CtrlInnerIrCutMode(1); },
                {{"DRV_SetIRCut", 1, "ERROR CLI_CtrlInnerIrCutMode: Function DRV_SetIRCut call failed"}}));
        add(row(
            "CLI_CtrlInnerOcStatus", [] { return CLI_CtrlInnerOcStatus(1); },
            {{"open /dev/motor", 1, "ERROR CLI_CtrlInnerOcStatus: Open file /dev/motor error"},
             {"ioctl /dev/motor 0x40046b44", 1, "ERROR CLI_CtrlInnerOcStatus: ioctl cmd[40046b44] failed"}}));
        add(row(
            "CLI_GetInnerOcStatus", [] { return CLI_GetInnerOcStatus(); },
            {{"open /dev/motor", 1, "ERROR CLI_GetInnerOcStatus: Open file /dev/motor error"},
             {"ioctl /dev/motor 0x80046b45", 1, "ERROR CLI_GetInnerOcStatus: ioctl cmd[80046b45] failed"}}));
        add(row("CLI_IrLedCtrl", [] { return CLI_IrLedCtrl(0, 0, 1, 31); },
                {{"DRV_CLI_SetIRLed", 1, "ERROR CLI_IrLedCtrl: Function DRV_CLI_SetIRLed call failed"}}));

        // ---- Shell plumbing and serial set-up ----
        add(row("CLI_PlatformInit", [] { return CLI_PlatformInit(); }));
        // Its result is the last step's: the characters of the console line on the early failures
        // ("[ERROR]:" + text + "\t@[src/cli_libfun.cpp CLI_EncodeInit]\r\n"), the failure print's on
        // the image enhancement, and nothing from the other platform steps on a first call.
        const char *const kEncodeGoesOn =
            "on the first call only the image enhancement's result reaches the caller";
        Row encode = row("CLI_EncodeInit", [] { return CLI_EncodeInit(); },
                         {{"popen cat /proc/driver/sensortype", 80,
                           "ERROR CLI_EncodeInit: cat /proc/driver/sensortype error"},
                          {"read cat /proc/driver/sensortype", 61, "ERROR CLI_EncodeInit: Read fail exit"},
                          {"DRV_SetVideoNorm", 0, nullptr, "the video norm's result is not looked at"},
                          {"DRV_SetVideoEncodeParam", 0, nullptr, kEncodeGoesOn},
                          {"ISP_SetExposure", 0, nullptr, kEncodeGoesOn},
                          {"ISP_SetWhiteBalance", 0, nullptr, kEncodeGoesOn},
                          {"ISP_SetImageEnhance", 134, nullptr}});
        encode.left_open = {LeftOpen::EncodeInitPipe};
        add(encode);
        add(row("CLI_RsInit", [] { return CLI_RsInit(g_records); }));
        // On a descriptor the shell could not open, the line settings are what fails first.
        add(row("CLI_SetRsRate",
                [] {
                    const int fd = open("/dev/ttyAMBA1", O_RDWR | O_NOCTTY);
                    const long long status = CLI_SetRsRate(fd, 115200);
                    if (fd >= 0)
                        close(fd);
                    return status;
                },
                {{"open /dev/ttyAMBA1", 1, "ERROR CLI_SetRsRate: tcgetattr() fail exit"},
                 {"tcgetattr /dev/ttyAMBA1", 1, "ERROR CLI_SetRsRate: tcgetattr() fail exit"},
                 {"tcsetattr /dev/ttyAMBA1", 1, "ERROR CLI_SetRsRate: tcsetattr() fail exit"}}));
        // Nothing hangs on the idle port, so the healthy read ends in its 1 s time-out; a failed
        // select ends it at once and without a word.
        Row treadn = row(
            "CLI_Treadn",
            [] {
                const int fd = open("/dev/ttyAMBA1", O_RDWR | O_NOCTTY);
                uint8_t buffer[8] = {};
                const long long status = CLI_Treadn(fd, sizeof buffer, timeval{1, 0}, buffer);
                if (fd >= 0)
                    close(fd);
                return status;
            },
            {{"open /dev/ttyAMBA1", 1, nullptr, "a bad descriptor fails the select: 1 without a word"},
             {"select /dev/ttyAMBA1", 1, nullptr, "a failed select ends the read: 1 without a word"}},
            1 * kSecond);
        treadn.healthy_status = 1;
        add(treadn);

        // ---- Lens ----
        const char *const kIspInitGoesOn =
            "a failed image-processor start is reported and the command carries on";
        add(row(
            "CLI_ZoomTracking", [] { return CLI_ZoomTracking(); },
            {{"ISP_Init", 0, "ERROR CLI_ZoomTracking: Function ISP_Init Failed! call failed", kIspInitGoesOn},
             {"ISP_CalibrateLens", 1, "ERROR CLI_ZoomTracking: Function ISP_CalibrateLens() call failed"}}));
        add(row("CLI_MotorResetZF", [] { return CLI_MotorResetZF(); },
                {{"DRV_ResetMotor", 1, "ERROR CLI_MotorResetZF: Function Reset Motor Fail call failed"},
                 {"DRV_WaitMotor", 1, "ERROR CLI_MotorResetZF: Function DRV_WaitMotor call failed"}}));
        add(row(
            "CLI_SetZoomPos", [] { return CLI_SetZoomPos(0, 0); },
            {{"ISP_Init", 0, "ERROR CLI_SetZoomPos: Function ISP init failed call failed", kIspInitGoesOn},
             {"ISP_SetFocusMode", 1, "ERROR CLI_SetZoomPos: Function ISP_SetFocusMode call failed"},
             {"ISP_CLI_SetZoomMax", 1, "ERROR CLI_SetZoomPos: Function ISP_ZoomIn() call failed"}}));
        add(row(
            "CLI_SetIrisPos", [] { return CLI_SetIrisPos(0, 1); },
            {{"ISP_Init", 0, "ERROR CLI_SetIrisPos: Function ISP init failed call failed", kIspInitGoesOn},
             {"ISP_SetFocusMode", 1, "ERROR CLI_SetIrisPos: Function ISP_SetFocusMode call failed"},
             {"ISP_SetAEMode", 1, "ERROR CLI_SetIrisPos: Function ISP_SetAEMode call failed"},
             {"ISP_SetAEIris", 1, "ERROR CLI_SetIrisPos: Function ISP_SetAEIris call failed"}}));
        add(row(
            "CLI_GetMotorStatus", [] { return CLI_GetMotorStatus(); },
            {{"open /dev/motor", 1, "ERROR CLI_GetMotorStatus: Open file /dev/motor error"},
             {"ioctl /dev/motor 0x80046b0c", 1, "ERROR CLI_GetMotorStatus: ioctl cmd[80046b0c] failed"},
             {"ioctl /dev/motor 0x80046b04", 1, "ERROR CLI_GetMotorStatus: ioctl cmd[80046b04] failed"},
             {"ioctl /dev/motor 0x80046b31", 1, "ERROR CLI_GetMotorStatus: ioctl cmd[80046b31] failed"}}));

        // ---- Climate ----
        // The all-units index drives unit 0 then unit 1; a failure on either ends the command
        // with 1 and names the unit. This camera's heaters have power levels, so the level
        // operation is the one that fails, and the report still names Drv_SetHeater: the
        // station's scripts match that wording whichever kind of heater is fitted.
        add(row(
            "CLI_HeatCtrl", [] { return CLI_HeatCtrl(0xABABABAB, 1); },
            {{"DRV_SetHeaterLevel#1", 1, "ERROR CLI_HeatCtrl: Function Drv_SetHeater(0, bIsOn) call failed"},
             {"DRV_SetHeaterLevel#2", 1,
              "ERROR CLI_HeatCtrl: Function Drv_SetHeater(1, bIsOn) call failed"}}));
        add(row("CLI_FanCtrl", [] { return CLI_FanCtrl(0xABABABAB, 1); },
                {{"Drv_SetFan#1", 1, "ERROR CLI_FanCtrl: Function Drv_SetFan(0, bIsOn) call failed"},
                 {"Drv_SetFan#2", 1, "ERROR CLI_FanCtrl: Function Drv_SetFan(1, bIsOn) call failed"}}));

        // ---- The peripheral box behind the hub: a send is not checked (a failed write goes
        // unnoticed), so only a reply that never comes tells ----
        const char *const kSendUnchecked = "the link does not look at what write returned";
        add(traffic(row(
            "CLI_PeripheralCtrlHeat", [] { return CLI_PeripheralCtrlHeat(0, 1); },
            {{"open /dev/ttyC0", 1, "ERROR CLI_PeripheralCtrlHeat: open file fail"},
             {"tc*", 1, "ERROR CLI_PeripheralCtrlHeat: open file fail"},
             {"write /dev/ttyC0", 0, nullptr, kSendUnchecked}},
            2 * kSecond, kLinkKeptOpen)));
        add(traffic(row(
            "CLI_PeripheralGetTemp", [] { return CLI_PeripheralGetTemp(); },
            {{"open /dev/ttyC0", 1, "ERROR CLI_PeripheralGetTemp: open file fail"},
             {"tc*", 1, "ERROR CLI_PeripheralGetTemp: open file fail"},
             {"write /dev/ttyC0#3", 1, "ERROR CLI_PeripheralGetTemp: Function CLI_ComRecv call failed"},
             {"write /dev/ttyC0", 0, nullptr, kSendUnchecked},
             {"select /dev/ttyC0", 1, "ERROR CLI_PeripheralGetTemp: Function CLI_ComRecv call failed"},
             {"read /dev/ttyC0", 1, "ERROR CLI_PeripheralGetTemp: Function CLI_ComRecv call failed"}},
            2 * kSecond, kLinkKeptOpen)));

        // ---- Sensors ----
        // The light sensor keeps its own wording ("open file ... error!!", the ADC request by
        // name); the PIR and compass self-test name the device or the request number; the compass
        // readings fail as a failed call of DRV_EcompassCtrl, horizontal or vertical alike.
        add(row(
            "CLI_PhotoSensorVoltage", [] { return CLI_PhotoSensorVoltage(); },
            {{"open /dev/gpioDev", 1, "ERROR CLI_PhotoSensorVoltage: open file /dev/gpioDev error!!"},
             {"ioctl /dev/gpioDev 0x2007", 1, "ERROR CLI_PhotoSensorVoltage: ioctl DEV_ADC0_GET fail!"}}));
        // The serial light sensor on the console UART: a port that will not open is told only
        // through perror; a rate that cannot be set closes the port again. A query that did not go
        // out spends one of the five attempts and the next is answered. A reply that does not come
        // ends the command at once, with the port left open as stations have always found it; so
        // a run waits at most one 1 s reply time-out beyond a few byte-times at 9600 baud.
        const char *const kLightSensorUnanswered = "ERROR CLI_232PhotoSensorVoltage: read num lRet is 1";
        add(row("CLI_232PhotoSensorVoltage", [] { return CLI_232PhotoSensorVoltage(); },
                {{"open /dev/ttyAMBA1", 1, nullptr},
                 {"tcgetattr /dev/ttyAMBA1", 1, "ERROR CLI_232PhotoSensorVoltage: Set Rate failed"},
                 {"tcsetattr /dev/ttyAMBA1", 1, "ERROR CLI_232PhotoSensorVoltage: Set Rate failed"},
                 {"write /dev/ttyAMBA1", 0, "ERROR CLI_232PhotoSensorVoltage: write num lRet is -1",
                  "a query that did not go out spends an attempt; the next one is answered"},
                 {"select /dev/ttyAMBA1", 1, kLightSensorUnanswered},
                 {"read /dev/ttyAMBA1", 1, kLightSensorUnanswered}},
                2 * kSecond, {LeftOpen::LightSensorAfterTimeout}));
        add(row("CLI_GetPirStatus", [] { return CLI_GetPirStatus(); },
                {{"open /dev/gpioDev", 1, "ERROR CLI_GetPirStatus: Open file /dev/gpioDev error"},
                 {"ioctl /dev/gpioDev 0x5006", 1, "ERROR CLI_GetPirStatus: ioctl cmd[5006] failed"}}));
        add(row("CLI_GyroscopeCheck", [] { return CLI_GyroscopeCheck(); },
                {{"open /dev/ecompass", 1, "ERROR CLI_GyroscopeCheck: Open file /dev/ecompass error"},
                 {"ioctl /dev/ecompass 0x1010", 1, "ERROR CLI_GyroscopeCheck: ioctl cmd[1010] failed"}}));
        add(row(
            "CLI_GyroscopeGetInfo", [] { return CLI_GyroscopeGetInfo(); },
            {{"DRV_EcompassCtrl", 1, "ERROR CLI_GyroscopeGetInfo: Function DRV_EcompassCtrl call failed"}}));
        add(row("CLI_GyroscopeCheckStatus", [] { return CLI_GyroscopeCheckStatus(); },
                {{"open /dev/gyro", 1, "ERROR CLI_GyroscopeCheckStatus: Open file /dev/gyro error"},
                 {"ioctl /dev/gyro 0x8004690c", 0, nullptr,
                  "the request's result is ignored: the zeroed status word reads as good"}}));

        // ---- Wi-Fi: the channel switch and the 56 s sniff ----
        const char *const kChannelUnchecked =
            "the interface commands and the channel request are not checked";
        add(row("CLI_WiFiSetChannel", [] { return CLI_WiFiSetChannel(6); },
                {{"COMDRV_System", 0, nullptr, kChannelUnchecked},
                 {"socket", 0, nullptr, kChannelUnchecked},
                 {"SIOCSIWFREQ wlan0", 0, nullptr, kChannelUnchecked}}));
        const char *const kSniffFailed = "ERROR CLI_SniffMac: Function CLI_MonitorTest call failed";
        add(row(
            "CLI_SniffMac", [] { return CLI_SniffMac("4c:5e:0c:b0:4f:f7"); },
            {{"DRV_SetWifiCfg", 1, kSniffFailed},
             {"socket", 0, "ERROR CLI_MonitorTest: catch timeout", kChannelUnchecked},
             {"SIOCSIWFREQ wlan0", 0, "ERROR CLI_MonitorTest: catch timeout", kChannelUnchecked},
             {"pcap_open_live wlan0", 1, kSniffFailed},
             {"pcap_compile", 1, kSniffFailed},
             {"pcap_setfilter", 1, kSniffFailed},
             // A failed receive is logged and the loop listens on until the station is heard.
             {"pcap_dispatch#6", 0, "ERROR CLI_MonitorTest: recv data fail",
              "a receive error is logged and the loop listens on"},
             {"pcap_dispatch", 0, "ERROR CLI_MonitorTest: catch timeout",
              "a receive error is logged and the loop listens on"}},
            57 * kSecond));

        // ---- GPS on the peripheral link: a try is 5 s of reading at most; six take about half a
        // minute ----
        const char *const kGpsSendUnchecked =
            "the mode sentence's write is not checked; the receiver streams anyway";
        for (const char *name : {"CLI_GetGpsCoor", "CLI_GetGpsSatellite"}) {
            const std::string open_fail = std::string("ERROR ") + name + ": open com fail";
            const std::string read_fail = std::string("ERROR ") + name + ": read date fail";
            static std::vector<std::string> keep; // the literals live as long as the table
            keep.push_back(open_fail);
            keep.push_back(read_fail);
            const char *const open_line = keep[keep.size() - 2].c_str();
            const char *const read_line = keep.back().c_str();
            const bool coor = std::string(name) == "CLI_GetGpsCoor";
            add(row(name,
                    coor ? std::function<long long()>([] { return CLI_GetGpsCoor(0); })
                         : std::function<long long()>([] { return CLI_GetGpsSatellite(0); }),
                    {{"open /dev/ttyC0", 1, open_line},
                     {"tc*", 1, open_line},
                     {"write /dev/ttyC0", 0, nullptr, kGpsSendUnchecked},
                     {"select /dev/ttyC0", 1, read_line},
                     {"read /dev/ttyC0", 1, read_line}},
                    40 * kSecond, kLinkKeptOpen));
        }
        add(row("CLI_SetGpsRate", [] { return CLI_SetGpsRate(9600); }));

        // ---- RFID reader and ZigBee behind the hub ----
        add(traffic(row("CLI_SetRfidRate", [] { return CLI_SetRfidRate(9600); })));
        // The search runs on its own thread: the station starts it, gives the reader two seconds,
        // stops it and waits for it to let go of the line, so the thread's work is counted too.
        Row search = traffic(row(
            "CLI_GetRfidIDInfo",
            [] {
                const long long status = CLI_GetRfidIDInfo(0);
                sleep(2);
                (void)CLI_GetRfidIDInfo(2);
                sleep(2);
                return status;
            },
            {{"pthread_create", 1, "ERROR CLI_GetRfidIDInfo: Function pthread_create call failed"}},
            5 * kSecond, kLinkKeptOpen));
        search.invariants_only = true; // the search thread's own failures: the invariants only
        add(search);
        add(traffic(row("CLI_SetZigbeeRate", [] { return CLI_SetZigbeeRate(115200); })));
        for (const bool version : {false, true}) {
            Row query =
                traffic(row(version ? "CLI_GetZigbeeVersion" : "CLI_GetZigbeeSensorInfo",
                            version ? std::function<long long()>([] { return CLI_GetZigbeeVersion(); })
                                    : std::function<long long()>([] { return CLI_GetZigbeeSensorInfo(); })));
            query.prepare = [] { (void)CLI_NetAccess(1); }; // the sensor has joined and reported
            add(query);
        }
        Row join = traffic(row(
            "CLI_NetAccess", [] { return CLI_NetAccess(1); }, {}, 20 * kSecond, kLinkKeptOpen));
        join.invariants_only = true;
        add(join);

        // ---- Parking lamps and the control board ----
        const char *const kLampsUnchecked = "the lamps' platform results are not looked at";
        add(traffic(row("CLI_ParkLedAlternate", [] { return CLI_ParkLedAlternate(0, 1); },
                        {{"DRV_SetParkLed", 0, nullptr, kLampsUnchecked}})));
        add(traffic(
            row("CLi_ParkLedCtrlSingle", [] { return CLi_ParkLedCtrlSingle(1, 1); },
                {{"DRV_SetParkLed", 1, "ERROR CLi_ParkLedCtrlSingle: SetParkLed(&pstLedCtrl) call error"}})));
        add(traffic(row("CLI_ParkLedCtrlAll", [] { return CLI_ParkLedCtrlAll(1); },
                        {{"DRV_SetParkLed", 0, nullptr, kLampsUnchecked}})));
        add(traffic(row(
            "CLI_ParkLedTestInit", [] { return CLI_ParkLedTestInit(); },
            {{"pthread_create", 1, "ERROR CLI_ParkLedTestInit: failed to create stParkLedFlashThreadID"}})));
        // The lamp test answers with the board operation's own result, unchanged.
        add(traffic(row("CLI_ParkLampLedCtrl", [] { return CLI_ParkLampLedCtrl(1); },
                        {{"DRV_OpenSIB", 1, "ERROR CLI_ParkLampLedCtrl: DRV_OpenSIB faild!!"},
                         {"DRV_SIBCliWaterLampTest", 0xFFFFFFFFLL, nullptr}})));
        Row baud = traffic(row("CLI_SetCtrlBoard485BaudRata", [] {
            CLI_SetCtrlBoard485BaudRata(9600);
            return 0LL;
        }));
        baud.status_word = false;
        add(baud);
        add(traffic(
            row("CLI_CtrlBoard485Test", [] { return CLI_CtrlBoard485Test(1, 0, 0x55); },
                {{"DRV_OpenSIB", 1, "ERROR CLI_CtrlBoard485Test: DRV_OpenSIB faild!!"},
                 {"DRV_SIBTest485", 1, "ERROR CLI_CtrlBoard485Test: Function DRV_SIBTest485 call failed"}})));
        add(traffic(
            row("CLI_GetCtrlBoardVersion", [] { return CLI_GetCtrlBoardVersion(); },
                {{"DRV_OpenSIB", 1, "ERROR CLI_GetCtrlBoardVersion: DRV_OpenSIB faild!!"},
                 {"DRV_SIBBoardTypeGet", 1,
                  "ERROR CLI_GetCtrlBoardVersion: Function DRV_SIBBoardTypeGet call failed"},
                 {"DRV_SIBVersionGet", 1, "ERROR CLI_GetCtrlBoardVersion: DRV_SIBGetVersion faild!!"}})));
        Row update = traffic(row("CLI_CtrlboardUpdate", [] { return CLI_CtrlboardUpdate(); }));
        update.healthy_status = 1; // updating the board is not offered here: always 1, no message
        add(update);
        add(traffic(row("CLI_CtrlBoardPowerLedCtrl", [] { return CLI_CtrlBoardPowerLedCtrl(1); },
                        {{"DRV_OpenSIB", 1, "ERROR CLI_CtrlBoardPowerLedCtrl: DRV_OpenSIB faild!!"},
                         {"DRV_SIBPowerlLampCtl", 1,
                          "ERROR CLI_CtrlBoardPowerLedCtrl: Function DRV_SIBPowerlLampCtl call failed"}})));

        // ---- Storage and alarm ports: answered by capability queries that cannot fail ----
        add(row("CLI_GetMmcOriginalCapacity", [] { return CLI_GetMmcOriginalCapacity(0, &g_word_a); }));
        add(row("CLI_GetFlashType", [] { return CLI_GetFlashType(&g_word_a); }));
        add(row("CLI_GetAlarmPortNum", [] { return CLI_GetAlarmPortNum(&g_word_a, &g_word_b); }));
        add(row("CLI_GetSysEmmcDiskNum", [] { return CLI_GetSysEmmcDiskNum(); }));
        return all;
    }();
    return rows;
}

} // namespace countdown
