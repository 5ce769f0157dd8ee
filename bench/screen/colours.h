/// The colours of the screen. Nearly everything is grey, so that the verdict stands out.
/// White text on Good, Bad, Trouble and Undecided has a contrast of at least 4.5 to 1.
#ifndef BENCH_SCREEN_COLOURS_H
#define BENCH_SCREEN_COLOURS_H

#include <QRgb>

namespace Colours
{

const QRgb Ground = 0xffdde2e6;
const QRgb Card = 0xfff6f7f8;
const QRgb Ink = 0xff1c2730;
const QRgb Faint = 0xff52606b;
const QRgb Header = 0xff2b3a45;
const QRgb White = 0xffffffff;

const QRgb Good = 0xff1a7a3c;
const QRgb Bad = 0xffb3201f;
const QRgb Trouble = 0xff9a5200;
const QRgb Undecided = 0xff566470;

const QRgb Testing = 0xffc3ced6; ///< text on it is Ink
const QRgb Done = 0xff3b6ea0;    ///< part of the progress bar
const QRgb Wanted = 0xfff2a900;  ///< frame around what the operator shall look at
const QRgb Notice = 0xfffff0c2;  ///< behind an instruction to the operator

} // namespace Colours

#endif
