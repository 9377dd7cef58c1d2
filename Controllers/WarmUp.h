#pragma once

class Bundle;
class RunLoop;
class Storyboard;

/// Loads, while nothing else is to be done, what the first notice will need: fonts, image readers, the form,
/// the XML parser. One step a turn of the run loop, so that a message never waits for more than one. Nothing
/// is kept that a message must find anew. All three live to the end of the process.
void warmUp(RunLoop &runLoop, const Bundle &mainBundle, const Storyboard &mainStoryboard);
