// SPDX-License-Identifier: MIT OR GPL-2.0
// Gives a kernel that runs in an emulator what the keypad's board has, through
// the kernel's own classes: LEDs, backlight, GPIOs numbered from 0, the supply of
// the bus, the revision of the board.
//
// What it plays is set below /sys/devices/platform/keypad-board:
//   tamper     "open" drives GPIO 17 high, "closed" low; "dead" makes reading it fail,
//              whatever its level, until "good"
//   voltage    of the bus, as voltage_now shows it
//   revision   of the board
//   light      "dead" makes every change of the backlight fail; "good" ends that
//   led        "-NAME" takes an LED away, "+NAME" puts it back
//
// /dev/keypad-stores hands out, one in a read, what the program mftool stored in
// sysfs files, in the order of the stores: "ERROR PATH TEXT\n". ERROR is 0 or a
// negative errno; what PATH names below /sys/class is the device's link there.
#include <linux/backlight.h>
#include <linux/gpio.h>
#include <linux/gpio/consumer.h>
#include <linux/gpio/driver.h>
#include <linux/kernfs.h>
#include <linux/kfifo.h>
#include <linux/kobject.h>
#include <linux/kprobes.h>
#include <linux/leds.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/poll.h>
#include <linux/power_supply.h>
#include <linux/sched.h>
#include <linux/wait.h>

#define PINS 64
#define TAMPER_PIN 17
#define SD_POWER_PIN 63

static struct platform_device *board;

// LEDs; the buzzer is one as well.

struct keypad_led {
    const char *name;
    struct led_classdev device;
    bool present;
};

static struct keypad_led leds[] = {
    {.name = "ready"}, {.name = "armed"}, {.name = "trouble"},
    {.name = "ac"},    {.name = "home"},  {.name = "buzzer"},
};

static DEFINE_MUTEX(leds_lock);

static void led_set(struct led_classdev *device, enum led_brightness level) {}

static int add_led(struct keypad_led *led)
{
    int error;

    memset(&led->device, 0, sizeof(led->device));
    led->device.name = led->name;
    led->device.max_brightness = 255;
    led->device.brightness_set = led_set;
    error = led_classdev_register(&board->dev, &led->device);
    led->present = error == 0;
    return error;
}

static void remove_led(struct keypad_led *led)
{
    led_classdev_unregister(&led->device);
    led->present = false;
}

static ssize_t led_store(struct device *dev, struct device_attribute *attr, const char *text,
                         size_t count)
{
    const bool add = text[0] == '+';
    int error = -ENOENT;
    size_t i;

    if (!add && text[0] != '-')
        return -EINVAL;
    mutex_lock(&leds_lock);
    for (i = 0; i < ARRAY_SIZE(leds); ++i) {
        if (!sysfs_streq(text + 1, leds[i].name))
            continue;
        error = 0;
        if (add && !leds[i].present)
            error = add_led(&leds[i]);
        else if (!add && leds[i].present)
            remove_led(&leds[i]);
    }
    mutex_unlock(&leds_lock);
    return error ? error : count;
}
static DEVICE_ATTR_WO(led);

// Backlight.

static struct backlight_device *screen_light;
static bool backlight_dead;

static int backlight_update(struct backlight_device *device)
{
    return backlight_dead ? -EIO : 0;
}

static const struct backlight_ops backlight_operations = {.update_status = backlight_update};

static ssize_t light_store(struct device *dev, struct device_attribute *attr, const char *text,
                           size_t count)
{
    backlight_dead = sysfs_streq(text, "dead");
    return count;
}
static DEVICE_ATTR_WO(light);

// GPIOs.

static bool levels[PINS];
static bool outputs[PINS];
static bool tamper_dead;

static int pin_direction(struct gpio_chip *chip, unsigned int pin)
{
    return outputs[pin] ? GPIO_LINE_DIRECTION_OUT : GPIO_LINE_DIRECTION_IN;
}

static int pin_input(struct gpio_chip *chip, unsigned int pin)
{
    outputs[pin] = false;
    return 0;
}

static int pin_output(struct gpio_chip *chip, unsigned int pin, int level)
{
    outputs[pin] = true;
    levels[pin] = level;
    return 0;
}

static int pin_get(struct gpio_chip *chip, unsigned int pin)
{
    return pin == TAMPER_PIN && tamper_dead ? -EIO : levels[pin];
}

static void pin_set(struct gpio_chip *chip, unsigned int pin, int level)
{
    levels[pin] = level;
}

static const char *const pin_names[PINS] = {[SD_POWER_PIN] = "sd_power"};

static struct gpio_chip pins = {
    .label = "keypad",
    .owner = THIS_MODULE,
    .base = 0,
    .ngpio = PINS,
    .names = pin_names,
    .get_direction = pin_direction,
    .direction_input = pin_input,
    .direction_output = pin_output,
    .get = pin_get,
    .set = pin_set,
};

static ssize_t tamper_store(struct device *dev, struct device_attribute *attr, const char *text,
                            size_t count)
{
    if (sysfs_streq(text, "dead") || sysfs_streq(text, "good"))
        tamper_dead = sysfs_streq(text, "dead");
    else
        levels[TAMPER_PIN] = sysfs_streq(text, "open");
    return count;
}
static DEVICE_ATTR_WO(tamper);

// A board's driver exports the card's power; the tool only finds it.
static int export_sd_power(void)
{
    int error = gpio_request_one(SD_POWER_PIN, GPIOF_OUT_INIT_LOW, "sd_power");

    return error ? error : gpiod_export(gpio_to_desc(SD_POWER_PIN), true);
}

// The supply of the bus.

static struct power_supply *supply;
static int voltage = 12345;

static const enum power_supply_property supply_properties[] = {POWER_SUPPLY_PROP_VOLTAGE_NOW};

static int supply_get(struct power_supply *psy, enum power_supply_property property,
                      union power_supply_propval *value)
{
    value->intval = voltage;
    return 0;
}

static const struct power_supply_desc supply_description = {
    .name = "corlink",
    .type = POWER_SUPPLY_TYPE_MAINS,
    .properties = supply_properties,
    .num_properties = ARRAY_SIZE(supply_properties),
    .get_property = supply_get,
};

static ssize_t voltage_store(struct device *dev, struct device_attribute *attr, const char *text,
                             size_t count)
{
    int error = kstrtoint(text, 10, &voltage);

    return error ? error : count;
}
static DEVICE_ATTR_WO(voltage);

// The revision of the board.

static struct kobject *revision_folder;
static int revision = 2;

static ssize_t marlow_revision_show(struct kobject *folder, struct kobj_attribute *attr, char *text)
{
    // Without a line end: that is how a revision reads as a number.
    return sysfs_emit(text, "%d", revision);
}
static struct kobj_attribute marlow_revision = __ATTR_RO(marlow_revision);

static ssize_t revision_store(struct device *dev, struct device_attribute *attr, const char *text,
                              size_t count)
{
    int error = kstrtoint(text, 10, &revision);

    return error ? error : count;
}
static DEVICE_ATTR_WO(revision);

static struct attribute *board_attrs[] = {
    &dev_attr_led.attr,     &dev_attr_light.attr,    &dev_attr_tamper.attr,
    &dev_attr_voltage.attr, &dev_attr_revision.attr, NULL,
};
ATTRIBUTE_GROUPS(board);

// The log of the stores.

struct store {
    int error;
    char path[80];
    char text[40];
};

static DEFINE_KFIFO(stores, struct store, 1024);
static DEFINE_SPINLOCK(stores_lock);
static DECLARE_WAIT_QUEUE_HEAD(stores_wait);
static bool stores_lost;

static int store_begins(struct kretprobe_instance *instance, struct pt_regs *regs)
{
    struct store *store = (struct store *)instance->data;
    const struct kernfs_open_file *file = (void *)regs->ARM_r0;
    const char *text = (const char *)regs->ARM_r1;
    const size_t count = regs->ARM_r2;
    const struct kernfs_node *node = file->kn;
    size_t i;

    if (strcmp(current->comm, "mftool") != 0)
        return 1; // not this one
    if (!node->parent || !node->parent->parent || !node->parent->parent->name)
        return 1;
    // A device lies in a folder called like its class, where its link is, too.
    snprintf(store->path, sizeof(store->path), "/sys/class/%s/%s/%s", node->parent->parent->name,
             node->parent->name, node->name);
    if (strcmp(node->parent->parent->name, "class") == 0)
        snprintf(store->path, sizeof(store->path), "/sys/class/%s/%s", node->parent->name,
                 node->name);
    for (i = 0; i < count && i < sizeof(store->text) - 1; ++i)
        store->text[i] = text[i] > ' ' && text[i] < 127 ? text[i] : '?';
    store->text[i] = '\0';
    return 0;
}

static int store_ends(struct kretprobe_instance *instance, struct pt_regs *regs)
{
    struct store *store = (struct store *)instance->data;
    const long result = regs_return_value(regs);

    store->error = result < 0 ? result : 0;
    if (kfifo_in_spinlocked(&stores, store, 1, &stores_lock) != 1)
        stores_lost = true;
    wake_up_interruptible(&stores_wait);
    return 0;
}

static struct kretprobe store_probe = {
    .kp.symbol_name = "sysfs_kf_write",
    .entry_handler = store_begins,
    .handler = store_ends,
    .data_size = sizeof(struct store),
    .maxactive = 16,
};

static ssize_t stores_read(struct file *file, char __user *to, size_t size, loff_t *offset)
{
    struct store store;
    char line[160];
    int length;

    if (kfifo_is_empty(&stores) && (file->f_flags & O_NONBLOCK))
        return -EAGAIN;
    if (wait_event_interruptible(stores_wait, !kfifo_is_empty(&stores)))
        return -ERESTARTSYS;
    if (stores_lost)
        return -EOVERFLOW;
    if (kfifo_out_spinlocked(&stores, &store, 1, &stores_lock) != 1)
        return 0;
    length = scnprintf(line, sizeof(line), "%d %s %s\n", store.error, store.path, store.text);
    if (length > size)
        return -EINVAL;
    return copy_to_user(to, line, length) ? -EFAULT : length;
}

static __poll_t stores_poll(struct file *file, struct poll_table_struct *table)
{
    poll_wait(file, &stores_wait, table);
    return kfifo_is_empty(&stores) ? 0 : EPOLLIN | EPOLLRDNORM;
}

static const struct file_operations stores_operations = {
    .owner = THIS_MODULE,
    .read = stores_read,
    .poll = stores_poll,
};

static struct miscdevice stores_device = {
    .minor = MISC_DYNAMIC_MINOR,
    .name = "keypad-stores",
    .fops = &stores_operations,
};

// There is one such board, made when the emulator starts and gone with it: the
// module cannot be unloaded, and what a failure leaves behind stays.
static int __init keypad_board_init(void)
{
    const struct backlight_properties light = {
        .type = BACKLIGHT_RAW, .max_brightness = 255, .brightness = 100};
    int error;
    size_t i;

    board = platform_device_alloc("keypad-board", PLATFORM_DEVID_NONE);
    if (!board)
        return -ENOMEM;
    board->dev.groups = board_groups;
    error = platform_device_add(board);
    if (error)
        return error;
    for (i = 0; i < ARRAY_SIZE(leds) && !error; ++i)
        error = add_led(&leds[i]);
    if (error)
        return error;
    screen_light =
        backlight_device_register("mxs-bl", &board->dev, NULL, &backlight_operations, &light);
    if (IS_ERR(screen_light))
        return PTR_ERR(screen_light);
    pins.parent = &board->dev;
    error = gpiochip_add_data(&pins, NULL);
    if (!error)
        error = export_sd_power();
    if (error)
        return error;
    supply = power_supply_register(&board->dev, &supply_description, NULL);
    if (IS_ERR(supply))
        return PTR_ERR(supply);
    revision_folder = kobject_create_and_add("board_revision", NULL);
    if (!revision_folder)
        return -ENOMEM;
    error = sysfs_create_file(revision_folder, &marlow_revision.attr);
    if (!error)
        error = misc_register(&stores_device);
    if (!error)
        error = register_kretprobe(&store_probe);
    return error;
}
module_init(keypad_board_init);

MODULE_DESCRIPTION("The keypad's devices for an emulated board");
MODULE_LICENSE("Dual MIT/GPL");
