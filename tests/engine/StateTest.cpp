// SPDX-License-Identifier: BSD-3-Clause
//
// What setters keep, ignore, clamp and raise, and when a client hears of it.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "engine/QMXOrvaniteTable.h"
#include "tests/engine/Scene.h"

namespace {

using Table = QMXOrvaniteTable;

struct Flag {
  const char* name;
  int Table::*member;
};

constexpr Flag flags[] = {{"tables", &Table::tablesDirty},   {"matte", &Table::matteDirty},
                          {"screen", &Table::screenDirty},   {"fgLinear", &Table::fgLinearDirty},
                          {"bgGrade", &Table::bgGradeDirty}, {"fgGrade", &Table::fgGradeDirty},
                          {"hold", &Table::holdDirty},       {"garbage", &Table::garbageDirty},
                          {"output", &Table::outputDirty}};

std::string raised(const Table& e) {
  std::string names;
  for (const Flag& flag : flags)
    if (e.*flag.member != 0) names += std::string(names.empty() ? "" : " ") + flag.name;
  return names;
}

void lowerAll(Table& e) {
  for (const Flag& flag : flags) e.*flag.member = 0;
}

void countCall(void* count) { ++*static_cast<int*>(count); }

const std::string spaceFlags = "tables matte screen fgLinear bgGrade fgGrade output";
const std::string nukeFlags = "tables matte screen fgLinear bgGrade hold garbage output";

struct Setter {
  const char* name;
  std::function<void(Table*)> change;
  std::string raises;
};

const Setter setters[] = {
    {"screen", [](Table* e) { orvanite_setScreen(e, 0, 0.5f, 1); }, "tables matte screen"},
    {"screenRange", [](Table* e) { orvanite_setScreenRange(e, 0.1f); }, "tables"},
    {"replace", [](Table* e) { orvanite_setReplace(e, 0, 0, 0.5f); }, "tables"},
    {"background", [](Table* e) { orvanite_setBackground(e, 0.5f, 0, 0); }, "tables"},
    {"mp", [](Table* e) { orvanite_setMp(e, 0.5f, 0.4f, 0.5f); }, "tables matte"},
    {"neutral", [](Table* e) { orvanite_setNeutral(e, 0.5f, 0.5f, 0.4f); }, spaceFlags},
    {"balance", [](Table* e) { orvanite_setBalance(e, 2, 0.25f); }, "tables matte"},
    {"gain", [](Table* e) { orvanite_setGain(e, 0, 0.25f); }, "tables matte"},
    {"exposure 0", [](Table* e) { orvanite_setExposure(e, 1, 2, 1, 0); }, "tables fgGrade"},
    {"exposure 1", [](Table* e) { orvanite_setExposure(e, 1, 2, 1, 1); }, "tables bgGrade"},
    {"exposure -3", [](Table* e) { orvanite_setExposure(e, 2, 2, 2, -3); }, "tables fgGrade"},
    {"gamma 0", [](Table* e) { orvanite_setGamma(e, 1, 2, 1, 0); }, "tables fgGrade"},
    {"gamma 9", [](Table* e) { orvanite_setGamma(e, 1, 2, 1, 9); }, "tables bgGrade"},
    {"offset 0", [](Table* e) { orvanite_setOffset(e, 0, 0, 1, 0); }, "tables fgGrade"},
    {"offset 1", [](Table* e) { orvanite_setOffset(e, 0, 0, 1, 1); }, "tables bgGrade"},
    {"saturation 0", [](Table* e) { orvanite_setSaturation(e, 0.5f, 0); }, "tables fgGrade"},
    {"saturation 1", [](Table* e) { orvanite_setSaturation(e, 0.5f, 1); }, "tables bgGrade"},
    {"useHold", [](Table* e) { orvanite_useHold(e, 0); }, "tables"},
    {"useGarbage", [](Table* e) { orvanite_useGarbage(e, 0); }, "tables"},
    {"useRef", [](Table* e) { orvanite_useRef(e, 0); }, "tables matte screen"},
    {"view", [](Table* e) { orvanite_setView(e, 5); }, "tables"},
    {"colourspace", [](Table* e) { orvanite_setColourspace(e, 9); }, spaceFlags},
    {"dstMax", [](Table* e) { orvanite_setDstMax(e, 65535); }, "tables output"},
    {"fgMax", [](Table* e) { orvanite_setFgMax(e, 65535); }, nukeFlags},
    {"bgMax", [](Table* e) { orvanite_setBgMax(e, 65535); }, nukeFlags},
    {"refMax", [](Table* e) { orvanite_setRefMax(e, 65535); }, nukeFlags},
    {"gMatteMax", [](Table* e) { orvanite_setGMatteMax(e, 65535); }, nukeFlags},
    {"hMatteMax", [](Table* e) { orvanite_setHMatteMax(e, 65535); }, nukeFlags},
};

bool hasHeapTables(const Table& e) {
  bool any = e.holdTable != nullptr || e.garbageTable != nullptr;
  for (int c = 0; c < 3; ++c)
    any = any || e.fgLinear[c] != nullptr || e.keyTable[c] != nullptr ||
          e.refKeyTable[c] != nullptr || e.bgTable[c] != nullptr || e.refTable[c] != nullptr ||
          e.floatTable[c] != nullptr;
  return any;
}

}  // namespace

TEST(Setters, RaiseTheirOwnFlagsAndNotifyOnceAndAreSilentTheSecondTime) {
  for (const Setter& setter : setters) {
    SCOPED_TRACE(setter.name);
    const Engine engine(orvanite_new());
    ASSERT_EQ(raised(*engine), "tables matte screen fgLinear bgGrade fgGrade hold garbage output");
    int calls = 0;
    orvanite_installCallback(engine.get(), countCall, &calls);
    lowerAll(*engine);
    setter.change(engine.get());
    EXPECT_EQ(raised(*engine), setter.raises);
    EXPECT_EQ(calls, 1);
    lowerAll(*engine);
    setter.change(engine.get());
    EXPECT_EQ(raised(*engine), "");
    EXPECT_EQ(calls, 1);
    orvanite_installCallback(engine.get(), nullptr, nullptr);
    orvanite_setView(engine.get(), 1);
    EXPECT_EQ(calls, 1) << "a null callback is none";
  }
}

TEST(Setters, ConditionTheirArgumentsBeforeComparingAndStoring) {
  int calls = 0;  // counted until the engine is gone
  const Engine engine(orvanite_new());
  Table* e = engine.get();
  EXPECT_EQ(e->colourspace, 1);
  EXPECT_EQ(orvanite_getView(e), 0);
  EXPECT_TRUE(e->screen[0] == 0 && e->screen[1] == 0 && e->screen[2] == 1);

  orvanite_installCallback(e, countCall, &calls);
  lowerAll(*e);
  orvanite_setBalance(e, 3, 0.2f);
  orvanite_setBalance(e, -1, 0.2f);
  orvanite_setGain(e, 3, 0.2f);
  orvanite_setScreenRange(e, -0.5f);  // 0, which it is
  orvanite_setScreenRange(e, NAN);
  for (const int max : {0, -1, -65535}) {
    orvanite_setFgMax(e, max);
    orvanite_setBgMax(e, max);
    orvanite_setRefMax(e, max);
    orvanite_setDstMax(e, max);
    orvanite_setGMatteMax(e, max);
    orvanite_setHMatteMax(e, max);
  }
  orvanite_setFgMax(e, 255);
  EXPECT_EQ(raised(*e), "");
  EXPECT_EQ(calls, 0);
  for (int band = 0; band < 3; ++band)
    EXPECT_TRUE(e->balance[band] == 0.5f && e->gain[band] == 0.0f);
  for (const int max : {e->fgMax, e->bgMax, e->refMax, e->dstMax, e->gMatteMax, e->hMatteMax})
    EXPECT_EQ(max, 255);

  orvanite_setGain(e, 1, 5.0f);
  orvanite_setGain(e, 0, -7.0f);
  EXPECT_TRUE(e->gain[1] == 1.0f && e->gain[0] == -1.0f);
  orvanite_setBalance(e, 0, -0.1f);
  orvanite_setBalance(e, 2, 1.1f);
  EXPECT_TRUE(e->balance[0] == 0.0f && e->balance[2] == 1.0f);
  orvanite_setSaturation(e, 4.0f, 0);
  orvanite_setSaturation(e, 2.0f, 7);
  EXPECT_TRUE(e->saturation[0] == 3.0f && e->saturation[1] == 2.0f);
  orvanite_setSaturation(e, -1.0f, -1);
  EXPECT_EQ(e->saturation[0], 0.0f);
  orvanite_setMp(e, -1, 0.3f, NAN);
  EXPECT_TRUE(e->mp[0] == 0.0f && e->mp[1] == 0.3f && e->mp[2] == 0.0f);

  // Clamping lets a NaN through, and a NaN never equals what is stored.
  orvanite_setGain(e, 2, NAN);
  EXPECT_TRUE(std::isnan(e->gain[2]));
  calls = 0;
  orvanite_setGain(e, 2, NAN);
  orvanite_setScreen(e, NAN, 0, 1);
  orvanite_setScreen(e, NAN, 0, 1);
  EXPECT_EQ(calls, 3);
}

TEST(Tables, AreDiscardedAndTheClientToldBeforeAMaximumChanges) {
  struct Seen {
    Table* engine;
    int calls = 0, max = 0;
    bool tables = false;
  };
  for (const bool floats : {false, true}) {
    Parameters p;
    p.ref = !floats;
    p.setAllMaxima(floats ? 1 : 255);
    const Engine engine = makeEngine(p);
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
    EXPECT_EQ(raised(*engine), floats ? "screen fgGrade hold garbage" : "screen")
        << "a flag falls only with its table built; with a clean plate the screen table is not";
    Seen seen{engine.get()};
    orvanite_installCallback(
        engine.get(),
        [](void* data) {
          auto* s = static_cast<Seen*>(data);
          ++s->calls;
          s->max = s->engine->fgMax;
          s->tables = hasHeapTables(*s->engine);
        },
        &seen);
    lowerAll(*engine);
    orvanite_setFgMax(engine.get(), 1000);
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.max, floats ? 1 : 255);
    EXPECT_TRUE(seen.tables);
    EXPECT_EQ(engine->fgMax, 1000);
    EXPECT_FALSE(hasHeapTables(*engine));
    EXPECT_EQ(raised(*engine), nukeFlags);
    orvanite_installCallback(engine.get(), nullptr, nullptr);
  }
}

TEST(Engine, NotifiesOnceMoreWhenDeletedAndANullOneIsNothingToDelete) {
  QMXOrvaniteTable* engine = orvanite_new();
  int calls = 0;
  orvanite_installCallback(engine, countCall, &calls);
  orvanite_delete(engine);
  EXPECT_EQ(calls, 1);
  orvanite_delete(nullptr);
}
