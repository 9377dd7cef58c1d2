#pragma once

class Bundle;
class RunLoop;
class Storyboard;

/// Loads, while the loop is idle, what the first notice needs: fonts, image readers, the form. One step a
/// turn of the run loop, so that a message never waits for more than one. Nothing is kept that a message must
/// find anew. All three live to the end of the process.
void warmUp(RunLoop &runLoop, const Bundle &mainBundle, const Storyboard &mainStoryboard);
