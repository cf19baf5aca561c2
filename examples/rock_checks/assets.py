"""Checks of an asset's group."""
import zerko

from rock_checks import RockCheck
import rock_checks


class NameLength(RockCheck):
    class_id = "rocks.name_length"
    long_name = "Name Length"
    short_name = "Length"
    description = "An asset's group name is no longer than the limit."
    category = "Object"
    sort_index = 1

    @staticmethod
    def parameters():
        return zerko.Parameters.Block(zerko.Parameters.IntRange("limit", minimum=4, maximum=64, value=16))

    def check(self, path, parameters):
        if len(self.name_of(path)) > parameters.limit.value:
            self.result.append(path)
            raise zerko.Error.ValidationError()

    def result_message(self):
        return f"{len(self.result)} name(s) over the limit" if self.result else "names fit"


class Collision(RockCheck):
    class_id = "rocks.collision"
    long_name = "Collision Geometry"
    short_name = "Collision"
    description = "Every asset has a collision group."
    category = "Mesh"

    def check(self, path, parameters):
        children = rock_checks.SCENE.get_children(path)
        if not any(child.endswith("_col") for child in children):
            self.result.append(path)
            self.could_be_selected = True
            raise zerko.Error.ValidationError()

    def select_result(self):
        rock_checks.SCENE.select(*self.result)

    def result_message(self):
        return "no collision group" if self.result else "collision found"
