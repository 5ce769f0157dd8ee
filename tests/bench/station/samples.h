/// A request of each kind and its replies, written out: what a person types, the data,
/// the frame, the answer and its text.
#ifndef TESTS_BENCH_STATION_SAMPLES_H
#define TESTS_BENCH_STATION_SAMPLES_H

#include <QtGlobal>

struct SampleCommand {
    const char *command;
    quint16 type;
    const char *data;
    const char *frame;
    bool isAcknowledged;
    quint16 reply; ///< 0 for none but the ACK
};

const SampleCommand sampleCommands[] = {
    {"exit", 0x6001, "", "7E000A60011402797F", true, 0},
    {"echo ABCD", 0x6002, "ABCD", "7E000E600219ABCD038D7F", false, 0x6003},
    {"version", 0x603C, "01", "7E000C603C2B0103007F", false, 0x603D},
    {"backlight 100", 0x6143, "0064", "7E000E61431F006403607F", true, 0},
    {"bias 1", 0x6143, "0101", "7E000E61431F010103587F", true, 0},
    {"leds 0F", 0x6144, "000F0000000000", "7E0018614414000F0000000000052F7F", true, 0},
    {"buzzer 200", 0x6147, "80C8", "7E000E61472380C8036B7F", true, 0},
    {"buzzer off", 0x6147, "0000", "7E000E614723000003487F", true, 0},
    {"sdread 30 2", 0x6161, "011E02", "7E001061610B011E0203B67F", false, 0x6162},
    {"pattern bars", 0x7000, "bars", "7E000E700018bars04297F", true, 0},
    {"pattern-clear", 0x7000, "", "7E000A70001402797F", true, 0},
    {"home-led 50", 0x7010, "32", "7E000C7010173202E47F", true, 0},
    {"calibrate on", 0x7020, "01", "7E000C7020180102E27F", true, 0},
    {"touch-test on", 0x7030, "01", "7E000C7030190102E47F", true, 0},
    {"passthrough on", 0x7040, "01", "7E000C70401A0102ED7F", true, 0},
    {"relay AT", 0x7041, "AT", "7E000C70411BAT03237F", true, 0},
    {"flash beta", 0x7050, "beta", "7E000E70501Dbeta042E7F", true, 0x7052},
    {"flash", 0x7050, "", "7E000A70501902837F", true, 0x7052},
    {"flash-query", 0x7053, "", "7E000A70531C02907F", false, 0x7051},
    {"mount", 0x7060, "", "7E000A70601A028C7F", true, 0x7061},
    {"buttons", 0x7070, "", "7E000A70701B028E7F", false, 0x7071},
    {"voltage", 0x7080, "", "7E000A70801C02907F", false, 0x7081},
};

struct SampleReply {
    const char *text;
    quint16 type;
    const char *data;
    const char *line;
};

const SampleReply sampleReplies[] = {
    {"ACK", 0x0004, "", "7E000A00043102957F\r\n"},
    {"NAK", 0x0005, "", "7E000A00053202977F\r\n"},
    {"NA", 0x0003, "", "7E000A00033002937F\r\n"},
    {"ready", 0x9999, "", "7E000A99995102B77F\r\n"},
    {"echo \"ABCD\"", 0x6003, "ABCD", "7E000E60033AABCD03D87F\r\n"},
    {"version 1.2 '20140101 1.2'", 0x603D, "010220140101 1.2  0000000000000000",
     "7E002C603D6E010220140101 1.2  000000000000000009467F\r\n"},
    {"SD card: status 0 (all ten bytes match), timeout 30, port 2, bytes 0A1B2C3D4E5F60718293",
     0x6162, "011E02000A1B2C3D4E5F60718293", "7E0026616213011E02000A1B2C3D4E5F6071829308787F\r\n"},
    {"calibration point 3 (top right) at 120,4095", 0x7021, "030012004095",
     "7E001670210D03001200409504F97F\r\n"},
    {"calibration accepted", 0x7022, "01", "7E000C70223A01032F7F\r\n"},
    {"touch at 120,45", 0x7031, "120045", "7E0010703108120045039C7F\r\n"},
    {"QB740 line \"OK\"", 0x7042, "OK", "7E000C70423COK036C7F\r\n"},
    {"flash stage 2 (flashing) 100 %", 0x7051, "0264", "7E000E70513E026403A27F\r\n"},
    {"flash complete", 0x7052, "01", "7E000C70523D0103357F\r\n"},
    {"flash failed", 0x7052, "00", "7E000C70523D0003347F\r\n"},
    {"mounted", 0x7061, "01", "7E000C70613D0103357F\r\n"},
    {"buttons: home down, tamper active", 0x7071, "03", "7E000C70713E0303397F\r\n"},
    {"voltage reading '00012345'", 0x7081, "00012345", "7E001270810F0001234504347F\r\n"},
};

#endif
